// The decoded arguments of a task as one text.

#pragma once

#include <string>

#include "orvex_args.h"

// Returns the arguments as KEY:CODE=VALUE with the value in JSON, the members of a struct in {},
// and "null" without queues. Deletes the member maps of structs, as a service does. Throws when the
// two queues do not have the same keys and values.
std::string TakeArgs(const orvex_typed_map_t* typed, const orvex_value_map_t* values);
