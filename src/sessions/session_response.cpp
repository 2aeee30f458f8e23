#include "sessions/session_response.h"

#include <array>
#include <cstdio>
#include <string>

#include "link/send.h"

using namespace orvd_client;

namespace {

std::string HexOpcode(unsigned opcode) {
  std::array<char, 9> digits{};
  static_cast<void>(snprintf(digits.data(), digits.size(), "%08x", opcode));
  return digits.data();
}

std::string SubsystemList(const std::vector<unsigned>& ssids) {
  std::string list;
  for (const unsigned ssid : ssids) {
    list += list.empty() ? "" : ",";
    list += R"({"id":)" + std::to_string(ssid) + "}";
  }
  return list;
}

std::string OpcodeList(const std::map<unsigned, std::vector<unsigned>>& started) {
  std::string list;
  for (const auto& [opcode, ssids] : started) {
    list += list.empty() ? "" : ",";
    list +=
        R"({"id":"0x)" + HexOpcode(opcode) + R"(","subsystems":[)" + SubsystemList(ssids) + "]}";
  }
  return list;
}

}  // namespace

int send_session_response(bool is_start, bool success, unsigned session_id,
                          std::map<unsigned, std::vector<unsigned>>& started) {
  std::string response = R"({"req_type":")";
  response += is_start ? "start_session" : "end_session";
  response += R"(","session_id":)";
  response += std::to_string(session_id);
  response += R"(,"Result":")";
  response += success ? "Success" : "Failed";
  if (is_start && success) {
    response += R"(","opcodes":[)";
    response += OpcodeList(started);
    response += "]}";
  } else {
    response += R"("})";
  }
  return orvd_send_to_manager_raw(response.c_str());
}
