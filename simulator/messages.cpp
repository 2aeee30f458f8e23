#include "orvex_simulator/messages.h"

#include <array>
#include <cstdio>

namespace orvd {
namespace {

std::string Hex(std::uint32_t opcode) {
  std::array<char, 9> digits{};
  static_cast<void>(std::snprintf(digits.data(), digits.size(), "%08x", opcode));
  return digits.data();
}

std::string SubsystemList(const std::vector<std::uint32_t>& ssids) {
  std::string list;
  for (const std::uint32_t ssid : ssids) {
    list += (list.empty() ? "" : ",") + (R"({"id":)" + std::to_string(ssid) + "}");
  }
  return "[" + list + "]";
}

}  // namespace

std::string Definition(std::uint32_t opcode, const std::vector<std::uint32_t>& ssids) {
  return "\x01ORVEX\x01\x02"
         R"({"Orvex":{"opcode":"0x)" +
         Hex(opcode) + R"(","subsystems":)" + SubsystemList(ssids) + "}}";
}

std::string SessionMessage(const std::string& req_type, std::uint32_t session_id,
                           std::uint32_t opcode, const std::vector<std::uint32_t>& ssids) {
  const std::string id =
      req_type == "end_session" ? std::to_string(opcode) : "\"0x" + Hex(opcode) + "\"";
  return R"({"req_type":")" + req_type + R"(","session_id":)" + std::to_string(session_id) +
         R"(,"opcodes":[{"id":)" + id + R"(,"subsystems":)" + SubsystemList(ssids) + "}]}";
}

std::string TaskMessage(std::uint32_t session_id, std::uint32_t opcode, std::uint32_t ssid,
                        int transac_id, const std::string& more) {
  return R"({"req_type":"exec_task","opcode":")" + Hex(opcode) + R"(","subsys_id":)" +
         std::to_string(ssid) + R"(,"session_id":)" + std::to_string(session_id) +
         R"(,"transac_id":)" + std::to_string(transac_id) + more + "}";
}

}  // namespace orvd
