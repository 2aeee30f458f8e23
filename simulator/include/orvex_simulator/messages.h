// Builds the messages of the Manager, and the API definition with which a service registers.
//
// docs/PROTOCOL.md describes the messages. All texts are escaped as JSON needs it. These functions
// wait for nothing, keep nothing, and may be called from any thread.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvd {

// 0x and eight hexadecimal digits.
std::string OpcodeText(std::uint32_t opcode);

// --- The registration. ---

// Marker, version, {"Orvex":{"opcode":"0x...","subsystems":[{"id":N},...]}}.
std::string Definition(std::uint32_t opcode, const std::vector<std::uint32_t>& ssids);
// The subsystems that a definition lists: the object behind the prefix, as AUTH has it in
// "api_def". Ids that are no 32-bit numbers are left out.
std::vector<std::uint32_t> SubsystemsOf(const Json::Value& definition);

// --- Answers to what a service asks. A negative `result` or id refuses. ---

std::string InitAnswer(int service_id);
// `req_type` is "AUTH" or "REDY".
std::string OpcodeAnswer(const std::string& req_type, std::uint32_t opcode, int result);
// `status` other than 0 refuses the whole query.
std::string PermissionAnswer(std::uint32_t query_id, const std::vector<bool>& granted,
                             int status = 0);
// `req_type` is "INFO_QUERY" or "INFO_MNTR". Each result is SUCCESS:VALUE or ERROR:REASON.
std::string InfoAnswer(const std::string& req_type, std::uint32_t query_id,
                       const std::vector<std::string>& results);

// --- Sessions and tasks. ---

// {"req_type":REQ_TYPE,"session_id":N,"opcodes":[...]} for "start_session", "ready_session" and
// "end_session". Only "end_session" has the opcode as a number.
std::string SessionMessage(const std::string& req_type, std::uint32_t session_id,
                           std::uint32_t opcode, const std::vector<std::uint32_t>& ssids);
// "end_session" for all pairs of the session.
std::string EndSessionMessage(std::uint32_t session_id);
// A session that is never opened: a service answers its end at once, with "Failed".
inline constexpr std::uint32_t kNoSession = UINT32_MAX;
// The subsystems that a service's answer to "start_session" lists as started.
std::vector<std::uint32_t> StartedSubsystems(const Json::Value& answer);

// "exec_task", with the opcode in hexadecimal digits without "0x". `more` has further members, each
// with a comma before it.
std::string TaskMessage(std::uint32_t session_id, std::uint32_t opcode, std::uint32_t ssid,
                        int transac_id, const std::string& more = "");
// "exec_task" for a function. `args` is a list, such as Arguments of typed_arguments.h returns.
std::string TaskMessage(std::uint32_t session_id, std::uint32_t opcode, std::uint32_t ssid,
                        int transac_id, const std::string& function, const Json::Value& args);
// The member "func" of a task, for `more`.
std::string FunctionMember(const std::string& function, const Json::Value& args);

// --- Notifications. ---

std::string StateChangeMessage(std::uint32_t session_id, const std::string& state,
                               const std::string& value, const std::string& package);
std::string SettingChangeMessage(std::uint32_t session_id, const std::string& setting,
                                 const std::string& value, const std::string& package);
std::string PermissionChangeMessage(std::uint32_t session_id, const std::string& permission,
                                    bool granted, const std::string& package);

}  // namespace orvd
