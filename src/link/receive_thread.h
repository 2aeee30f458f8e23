#pragma once

#include "link/connection.h"

// Starts the detached thread that reads the Manager's messages from this connection and serves
// them. Returns false when the thread cannot be started.
bool StartReceiveThread(const StandingConnection& standing);
