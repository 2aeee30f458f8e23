#include "link/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "base/never_destroyed.h"
#include "link/send.h"
#include "link/socket_path.h"

namespace orvd_client {

std::atomic<int> gMgrSocket_fd{-1};

namespace {

std::shared_ptr<Connection>& CurrentSlot() REQUIRES(gLinkMutex) {
  return NeverDestroyed<std::shared_ptr<Connection>>();
}

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

// Publishes the descriptor only after connect has succeeded. A service that initialises while the
// receive thread tries to reconnect must not use an unconnected socket.
bool Publish(const std::shared_ptr<Connection>& connection, Generation generation) {
  const MutexLock lock(gLinkMutex);
  if (CurrentGeneration() != generation) {
    return false;
  }
  if (CurrentSlot()) {
    CurrentSlot()->ShutDown();
  }
  CurrentSlot() = connection;
  gMgrSocket_fd = connection->fd();
  return true;
}

void Withdraw(const std::shared_ptr<Connection>& connection) {
  const MutexLock lock(gLinkMutex);
  if (CurrentSlot() == connection) {
    CurrentSlot().reset();
    gMgrSocket_fd = kNoSocket;
  }
  connection->ShutDown();
}

}  // namespace

Connection::~Connection() {
  close(fd_);
}

void Connection::ShutDown() {
  is_shut_down_ = true;
  shutdown(fd_, SHUT_RDWR);
}

bool Connection::PeerHasClosed() const {
  pollfd watched{fd_, POLLRDHUP, 0};
  const bool closed = poll(&watched, 1, 0) > 0 && (watched.revents & POLLERR) == 0;
  return end_of_file_received_ || (closed && !reset_received_ && !is_shut_down_);
}

ConnectionAndGeneration CurrentConnection() {
  const MutexLock lock(gLinkMutex);
  return {CurrentSlot(), CurrentGeneration()};
}

bool RecordLoss(Connection& connection) {
  const MutexLock lock(gLinkMutex);
  if (ThisThreadIsOutdated() || connection.is_disconnecting()) {
    return false;
  }
  connection.RecordEndOfFile();
  return true;
}

int ConnectFor(Generation generation) {
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

int Disconnect(const std::shared_ptr<Connection>& connection) {
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

}  // namespace orvd_client

int connect_to_manager() {
  using namespace orvd_client;
  return ConnectFor(CurrentGeneration());
}

int disconnect_from_manager() {
  using namespace orvd_client;
  return Disconnect(CurrentConnection().connection);
}
