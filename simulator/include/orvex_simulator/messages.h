// Builds messages of the Manager, and the API definition with which a service registers.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvd {

// Marker, version, {"Orvex":{"opcode":"0x...","subsystems":[{"id":N},...]}}.
std::string Definition(std::uint32_t opcode, const std::vector<std::uint32_t>& ssids);

// {"req_type":REQ_TYPE,"session_id":N,"opcodes":[...]} for "start_session", "ready_session" and
// "end_session". Only "end_session" has the opcode as a number.
std::string SessionMessage(const std::string& req_type, std::uint32_t session_id,
                           std::uint32_t opcode, const std::vector<std::uint32_t>& ssids);

// "exec_task", with the opcode in hexadecimal digits without "0x". `more` has further members, each
// with a comma before it.
std::string TaskMessage(std::uint32_t session_id, std::uint32_t opcode, std::uint32_t ssid,
                        int transac_id, const std::string& more = "");

}  // namespace orvd
