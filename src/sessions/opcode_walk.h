// The one walk over the "opcodes" of a session message.

#pragma once

#include <json/value.h>

#include <cstdint>

#include "link/json_members.h"
#include "registration/ready_table.h"

// Calls `visit(opcode, entry, ssid)` for every subsystem of every opcode that is ready, in the
// order of the message; an opcode that is not ready is passed over. `read_opcode(element, opcode)`
// ends the walk by returning false, and with it the whole function.
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

// The opcode as hexadecimal text, in the messages that start and ready sessions.
inline bool ReadHexOpcode(const Json::Value& element, uint32_t& opcode) {
  opcode = FromHex(TextMember(element, "id", "0"));
  return true;
}
