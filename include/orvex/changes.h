// The notifications of the Manager.

#pragma once

#include <cstdint>
#include <string>

namespace orvex {

// A state or a system setting has changed.
struct StateChange {
  uint32_t session;     // the session that is told
  std::string state;    // its name: the text before the first colon
  std::string value;    // its new value
  std::string package;  // the package concerned; "null" when the Manager names none
};

// A permission of a session was granted or withdrawn.
struct PermissionChange {
  uint32_t session;        // the session whose permission changed
  std::string permission;  // its name; "0" when the Manager names none
  bool granted;            // false: withdrawn
  std::string package;     // the package concerned; "null" when the Manager names none
};

}  // namespace orvex
