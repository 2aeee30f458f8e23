// Reconnects after the Manager has closed the connection, for 20 seconds at most.

#pragma once

#include "link/connect.h"
#include "orvex_args.h"

namespace orvd_client {

// Tries to connect until the time limit. Returns 0, or -1 after the time limit. Returns -1 without
// a log line when the generation has ended.
int ReconnectFor(Generation generation);

}  // namespace orvd_client

// Calls ReconnectFor() with the current generation.
ORVD_EXPORT int reconnect_to_manager();
