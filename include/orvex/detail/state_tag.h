// Identifies the types of the author's session states.

#pragma once

namespace orvex::detail {

class SessionStates;

// The address of an object that exists once for each type.
using StateTag = const char*;

// Not constant, because a linker may merge equal constants.
template <typename T>
inline char state_tag = 0;

}  // namespace orvex::detail
