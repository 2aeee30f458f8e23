#include "link/connect.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "link/socket_path.h"

using namespace orvd_client;

namespace {

// Serialises attempts to connect. An attempt of an old generation is closed before the next one
// begins. So a Manager that accepts one connection from a process never accepts the old attempt.
Mutex gConnectMutex;

bool ConnectTo(const char* path, int fd) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

// Sets the flags even if the connection then fails, but only for the generation that connects.
const char* PathFor(Generation generation) {
  const SocketPath chosen = ChooseSocketPath();
  const MutexLock lock(gLinkMutex);
  if (CurrentGeneration() == generation) {
    SetFlags(chosen);
  }
  return chosen.path;
}

std::shared_ptr<Connection> MakeConnection(Generation generation) {
  // A program that the service starts by fork and exec must not inherit the socket.
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    LOG_AT(kFailure, "Failed to connect to ORVEX Manager (socket creation failed %s)",
           ErrorText(errno));
    return nullptr;
  }
  auto connection = std::make_shared<Connection>(fd);
  if (!ConnectTo(PathFor(generation), fd)) {
    const int error = errno;
    connection.reset();
    LOG_AT(kFailure, "Failed to connect to ORVEX Manager (connection failed %s)", ErrorText(error));
  }
  return connection;
}

}  // namespace

int orvd_client::ConnectFor(Generation generation) {
  const MutexLock lock(gConnectMutex);
  if (CurrentGeneration() != generation) {
    return -1;
  }
  const std::shared_ptr<Connection> connection = MakeConnection(generation);
  if (!connection || !Publish(connection, generation)) {
    return -1;
  }
  LOG_AT(kProgress, "Manager connection established, gMgrSocket_fd %d", connection->fd());
  return 0;
}

int connect_to_manager() {
  return ConnectFor(CurrentGeneration());
}
