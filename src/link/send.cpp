#include "link/send.h"

#include <sys/socket.h>

#include <cstring>

#include "base/log.h"

using namespace orvd_client;

namespace {

constexpr int kLoggedCharacters = 250;

Mutex gSendMutex;

void LogSending(const char* msg) {
  LOG_AT(kEveryLevel, "client Sending message %.*s", kLoggedCharacters, msg);
}

// Without a connection, sendto fails on the invalid descriptor. MSG_NOSIGNAL is not needed: the
// kernel raises SIGPIPE for stream sockets, but not for sequenced-packet sockets.
int SendPacket(const Connection* connection, const char* msg) REQUIRES(gSendMutex) {
  const int fd = connection == nullptr ? kNoSocket : connection->fd();
  if (sendto(fd, msg, strlen(msg), 0, nullptr, 0) == -1) {
    LOG_AT(kEveryLevel, "client NOT able to send msg");
    return -1;
  }
  return 0;
}

}  // namespace

namespace orvd_client {

std::shared_ptr<Connection> ConnectionToSendOn() {
  return ThisThreadMaySend() ? CurrentConnection().connection : nullptr;
}

int SendOn(std::shared_ptr<Connection> connection, const char* msg) {
  LogSending(msg);
  const MutexLock lock(gSendMutex);
  const int result = SendPacket(connection.get(), msg);
  connection.reset();
  return result;
}

}  // namespace orvd_client

int orvd_send_to_manager_raw(const char* msg) {
  LogSending(msg);
  const MutexLock lock(gSendMutex);
  return SendPacket(ConnectionToSendOn().get(), msg);
}
