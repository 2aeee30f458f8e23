// Iterates over the "opcodes" of a session message.

#pragma once

#include <json/value.h>

#include <cstdint>

#include "base/json_members.h"
#include "registration/ready_table.h"

namespace orvd_client {

// Calls `visit(opcode, entry, ssid)` for every subsystem of every ready opcode, in the order of the
// message. Skips an opcode that is not ready. When `read_opcode(element, opcode)` returns false,
// this function returns false at once.
template <typename ReadOpcode, typename Visit>
bool WalkOpcodes(const Json::Value& message, ReadOpcode read_opcode, Visit visit) {
  for (const Json::Value& element : ListMember(message, "opcodes")) {
    uint32_t opcode = 0;
    if (!read_opcode(element, opcode)) {
      return false;
    }
    const auto entry = FindReadyEntry(opcode);
    if (!entry) {
      continue;
    }
    for (const Json::Value& subsystem : ListMember(element, "subsystems")) {
      visit(opcode, *entry, UintMember(subsystem, "id"));
    }
  }
  return true;
}

// Reads the opcode as hexadecimal text, as in the messages that start and ready sessions.
inline bool ReadHexOpcode(const Json::Value& element, uint32_t& opcode) {
  opcode = FromHex(TextMember(element, "id", "0"));
  return true;
}

}  // namespace orvd_client
