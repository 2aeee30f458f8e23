// What both sides of the soak know: the pairs, and the rules by which the Manager answers queries.

#pragma once

#include <cstdint>
#include <string>

namespace soak {

inline constexpr uint32_t kOpcodes[] = {0xa001, 0xa002};
inline constexpr uint32_t kSubsystems = 4;  // 1 and 2 of the first opcode, 3 and 4 of the second

constexpr uint32_t OpcodeOf(uint32_t ssid) {
  return kOpcodes[(ssid - 1) / 2];
}

inline std::string OpcodeText(uint32_t opcode) {
  return opcode == kOpcodes[0] ? "0x0000a001" : "0x0000a002";
}

// Of two numbers in a row one is granted at least: what is granted never looks like "not sent".
constexpr bool Granted(uint32_t session_id, uint32_t number) {
  return (session_id + number) % 3 != 0;
}

inline std::string InfoOf(uint32_t session_id, const std::string& item) {
  return "SUCCESS:" + item + " of " + std::to_string(session_id);
}

struct ServiceCounts {
  uint64_t queries = 0;  // answered as the rules say
  uint64_t wrong = 0;
  uint64_t cut = 0;  // not answered, because the link was lost
  uint64_t notifications = 0;
};

// Serves until SIGTERM, then writes the counts to `report` and ends the process.
[[noreturn]] void RunService(int report);

}  // namespace soak
