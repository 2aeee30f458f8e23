#include "link/disconnect.h"

#include "base/log.h"
#include "link/send.h"

using namespace orvd_client;

int orvd_client::Disconnect(const std::shared_ptr<Connection>& connection) {
  if (!connection) {
    return -1;
  }
  const bool first = connection->BeginDisconnect();
  if (first && SendOn(connection, "EXIT") != 0) {
    LOG_AT(kFailure, "Failed to disconnect to manager - proceeding anyways");
  }
  Withdraw(connection);
  return first ? 0 : -1;
}

int disconnect_from_manager() {
  return Disconnect(CurrentConnection().connection);
}
