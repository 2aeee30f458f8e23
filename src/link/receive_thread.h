#pragma once

#include "link/connection.h"

// Starts the detached thread that reads the Manager's messages from this connection and serves
// them. Returns false when the system has no thread.
bool StartReceiveThread(const Link& link);
