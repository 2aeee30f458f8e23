// After the Manager has closed the connection: back within 20 seconds, or not at all.

#pragma once

#include "link/connection.h"
#include "orvex_args.h"

// Tries until the time is up. Returns 0; -1 on time-out; -1 without a log line once the generation
// is over.
int ReconnectFor(Generation generation);

ORVD_EXPORT int reconnect_to_manager();
