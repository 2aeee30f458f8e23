#include "orvex_simulator/messages.h"

#include <array>
#include <cstdio>

#include "orvex_simulator/json_text.h"

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

std::string Quoted(const std::string& text) {
  return WriteCompact(text);
}

std::string TextList(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) {
    list += (list.empty() ? "" : ",") + Quoted(text);
  }
  return "[" + list + "]";
}

std::string ChangeMessage(const char* req_type, std::uint32_t session_id, const std::string& state,
                          const std::string& value, const std::string& package) {
  return std::string(R"({"req_type":")") + req_type + R"(","session_id":)" +
         std::to_string(session_id) + R"(,"state":)" + Quoted(state) + R"(,"value":)" +
         Quoted(value) + R"(,"package":)" + Quoted(package) + "}";
}

// Appends the ids of {"subsystems":[{"id":N},...]}.
void AppendSubsystems(std::vector<std::uint32_t>& ssids, const Json::Value& object) {
  const Json::Value list = object.isObject() ? object["subsystems"] : Json::Value();
  for (const Json::Value& subsystem : list.isArray() ? list : Json::Value()) {
    if (subsystem.isObject() && subsystem["id"].isUInt()) {
      ssids.push_back(subsystem["id"].asUInt());
    }
  }
}

}  // namespace

std::string OpcodeText(std::uint32_t opcode) {
  return "0x" + Hex(opcode);
}

std::string Definition(std::uint32_t opcode, const std::vector<std::uint32_t>& ssids) {
  return "\x01ORVEX\x01\x02"
         R"({"Orvex":{"opcode":")" +
         OpcodeText(opcode) + R"(","subsystems":)" + SubsystemList(ssids) + "}}";
}

std::vector<std::uint32_t> SubsystemsOf(const Json::Value& definition) {
  std::vector<std::uint32_t> ssids;
  AppendSubsystems(ssids, definition.isObject() ? definition["Orvex"] : Json::Value());
  return ssids;
}

std::string InitAnswer(int service_id) {
  return R"({"req_type":"INIT","service_id":)" + std::to_string(service_id) + "}";
}

std::string OpcodeAnswer(const std::string& req_type, std::uint32_t opcode, int result) {
  return R"({"req_type":")" + req_type + R"(","opcode":")" + std::to_string(opcode) +
         R"(","result":)" + std::to_string(result) + "}";
}

std::string PermissionAnswer(std::uint32_t query_id, const std::vector<bool>& granted, int status) {
  std::vector<std::string> results;
  results.reserve(granted.size());
  for (const bool one : granted) {
    results.emplace_back(one ? "1" : "0");
  }
  return R"({"req_type":"PERMISSION","QueryId":)" + std::to_string(query_id) + R"(,"status":)" +
         std::to_string(status) + R"(,"PermRes":)" + TextList(results) + "}";
}

std::string InfoAnswer(const std::string& req_type, std::uint32_t query_id,
                       const std::vector<std::string>& results) {
  return R"({"req_type":")" + req_type + R"(","QueryId":)" + std::to_string(query_id) +
         R"(,"QueryInfosRes":)" + TextList(results) + "}";
}

std::string SessionMessage(const std::string& req_type, std::uint32_t session_id,
                           std::uint32_t opcode, const std::vector<std::uint32_t>& ssids) {
  const std::string id =
      req_type == "end_session" ? std::to_string(opcode) : "\"" + OpcodeText(opcode) + "\"";
  return R"({"req_type":")" + req_type + R"(","session_id":)" + std::to_string(session_id) +
         R"(,"opcodes":[{"id":)" + id + R"(,"subsystems":)" + SubsystemList(ssids) + "}]}";
}

std::string EndSessionMessage(std::uint32_t session_id) {
  return R"({"req_type":"end_session","session_id":)" + std::to_string(session_id) + "}";
}

std::vector<std::uint32_t> StartedSubsystems(const Json::Value& answer) {
  std::vector<std::uint32_t> ssids;
  const Json::Value list = answer.isObject() ? answer["opcodes"] : Json::Value();
  for (const Json::Value& opcode : list.isArray() ? list : Json::Value()) {
    AppendSubsystems(ssids, opcode);
  }
  return ssids;
}

std::string TaskMessage(std::uint32_t session_id, std::uint32_t opcode, std::uint32_t ssid,
                        int transac_id, const std::string& more) {
  return R"({"req_type":"exec_task","opcode":")" + Hex(opcode) + R"(","subsys_id":)" +
         std::to_string(ssid) + R"(,"session_id":)" + std::to_string(session_id) +
         R"(,"transac_id":)" + std::to_string(transac_id) + more + "}";
}

std::string TaskMessage(std::uint32_t session_id, std::uint32_t opcode, std::uint32_t ssid,
                        int transac_id, const std::string& function, const Json::Value& args) {
  return TaskMessage(session_id, opcode, ssid, transac_id, FunctionMember(function, args));
}

std::string FunctionMember(const std::string& function, const Json::Value& args) {
  return R"(,"func":{"name":)" + Quoted(function) + R"(,"num_of_args":)" +
         std::to_string(args.size()) + R"(,"args":)" + WriteCompact(args) + "}";
}

std::string StateChangeMessage(std::uint32_t session_id, const std::string& state,
                               const std::string& value, const std::string& package) {
  return ChangeMessage("state_change", session_id, state, value, package);
}

std::string SettingChangeMessage(std::uint32_t session_id, const std::string& setting,
                                 const std::string& value, const std::string& package) {
  return ChangeMessage("system_setting_change", session_id, setting, value, package);
}

// The Manager spells the member "sesson_id" and writes its numbers as texts.
std::string PermissionChangeMessage(std::uint32_t session_id, const std::string& permission,
                                    bool granted, const std::string& package) {
  return R"({"req_type":"permission_change","sesson_id":")" + std::to_string(session_id) +
         R"(","permission":)" + Quoted(permission) + R"(,"status":")" + (granted ? "1" : "0") +
         R"(","package":)" + Quoted(package) + "}";
}

}  // namespace orvd
