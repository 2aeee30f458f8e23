// Sends texts to the Manager, one packet each.

#pragma once

#include <memory>

#include "link/connection.h"
#include "orvex_args.h"

namespace orvd_client {

// Returns the connection on which this thread may send now. Returns null without a connection,
// and if ThisThreadMaySend() is false.
std::shared_ptr<Connection> ConnectionToSendOn();

// Sends `msg` on `connection`, which may be null. Returns 0, or -1 if the send failed. It fails
// without a connection and after the connection was shut down. Releases the connection before it
// returns, because the caller may then wait without limit. Any thread; one send at a time.
int SendOn(std::shared_ptr<Connection> connection, const char* msg);

}  // namespace orvd_client

// Sends `msg` on the current connection. Returns 0, or -1 if the send failed. Always fails if
// ThisThreadMaySend() is false, that is on most outdated receive threads. Any thread; one send at a
// time.
ORVD_EXPORT int orvd_send_to_manager_raw(const char* msg);
