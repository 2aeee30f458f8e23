// Connects to the Manager.

#pragma once

#include "link/connection.h"
#include "orvex_args.h"

namespace orvd_client {

// Connects, unless `generation` has ended. Returns 0 or -1.
int ConnectFor(Generation generation);

}  // namespace orvd_client

// Connects to the Manager's socket for this process. Returns 0 or -1.
ORVD_EXPORT int connect_to_manager();
