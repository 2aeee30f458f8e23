// Shared by both processes of the stress test: the offered pairs and the Manager's rules for query
// results. A pair is an opcode and the id of one of its subsystems.

#pragma once

#include <cstdint>
#include <string>

namespace soak {

inline constexpr uint32_t kOpcodes[] = {0xa001, 0xa002};
inline constexpr uint32_t kSubsystems = 4;  // the first opcode has 1 and 2, the second has 3 and 4

constexpr uint32_t OpcodeOf(uint32_t ssid) {
  return kOpcodes[(ssid - 1) / 2];
}

inline std::string OpcodeText(uint32_t opcode) {
  return opcode == kOpcodes[0] ? "0x0000a001" : "0x0000a002";
}

// Of two consecutive numbers at least one is granted. So an answer is never equal to the result of
// a query that failed.
constexpr bool Granted(uint32_t session_id, uint32_t number) {
  return (session_id + number) % 3 != 0;
}

inline std::string InfoOf(uint32_t session_id, const std::string& item) {
  return "SUCCESS:" + item + " of " + std::to_string(session_id);
}

struct ServiceCounts {
  uint64_t queries = 0;  // with the expected result
  uint64_t wrong = 0;
  uint64_t cut = 0;  // without an answer, because the connection was lost
  uint64_t notifications = 0;
};

// Runs the service until SIGTERM. Then writes the counts to the descriptor `report` and ends the
// process.
[[noreturn]] void RunService(int report);

}  // namespace soak
