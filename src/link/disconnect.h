// EXIT: disconnects from the Manager.

#pragma once

#include <memory>

#include "link/connection.h"
#include "orvex_args.h"

namespace orvd_client {

// Sends "EXIT" on `connection` and shuts it down. Returns -1 without a connection, or if another
// thread has begun to disconnect it.
int Disconnect(const std::shared_ptr<Connection>& connection);

}  // namespace orvd_client

// Sends "EXIT" and disconnects. Returns -1 if there is no connection. Otherwise it returns 0, even
// if "EXIT" could not be sent.
ORVD_EXPORT int disconnect_from_manager();
