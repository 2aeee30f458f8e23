// After the Manager has closed the connection: back within 20 seconds, or not at all.

#pragma once

#include <cstdint>

#include "orvex_args.h"

// Tries until the time is up. Returns 0, or -1 on time-out; gives up silently, with -1, when the
// service has initialised or deinitialised meanwhile.
int ReconnectFor(uint64_t tenure_number);

ORVD_EXPORT int reconnect_to_manager();
