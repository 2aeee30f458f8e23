#include "link/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/never_destroyed.h"

namespace orvd_client {

std::atomic<int> gMgrSocket_fd{-1};

namespace {

std::shared_ptr<Connection>& CurrentSlot() REQUIRES(gLinkMutex) {
  return NeverDestroyed<std::shared_ptr<Connection>>();
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

}  // namespace orvd_client
