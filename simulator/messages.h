// The Manager's messages, and the definition that a service registers with, as texts.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvd {

// A whole definition: marker, version, {"Orvex":{"opcode":"0x...","subsystems":[{"id":N},...]}}.
std::string Definition(std::uint32_t opcode, const std::vector<std::uint32_t>& ssids);

// {"req_type":REQ_TYPE,"session_id":N,"opcodes":[...]} for "start_session", "ready_session" and
// "end_session", which alone has the opcode as a number.
std::string SessionMessage(const std::string& req_type, std::uint32_t session_id,
                           std::uint32_t opcode, const std::vector<std::uint32_t>& ssids);

// "exec_task", with the opcode in bare hexadecimal. `more`: further members, each behind a comma.
std::string TaskMessage(std::uint32_t session_id, std::uint32_t opcode, std::uint32_t ssid,
                        int transac_id, const std::string& more = "");

}  // namespace orvd
