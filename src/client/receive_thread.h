// The receive thread: receives, parses and dispatches the Manager's messages.

#pragma once

#include "link/connection.h"

namespace orvd_client {

// Starts the detached thread that serves this connection. Returns false if the thread cannot be
// started.
bool StartReceiveThread(const ConnectionAndGeneration& current);

}  // namespace orvd_client
