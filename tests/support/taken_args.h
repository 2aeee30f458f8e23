// The decoded arguments of a task as one text.

#pragma once

#include <string>

#include "orvex_args.h"

// Both queues as KEY:CODE=VALUE, in JSON, the members of a struct in {}; "null" without queues.
// Deletes the maps of structs, as a service does. Throws when the queues do not belong together.
std::string TakeArgs(const orvex_typed_map_t* typed, const orvex_value_map_t* values);
