#include "link/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include "link/log.h"
#include "link/mutex.h"
#include "link/never_destroyed.h"
#include "link/socket_path.h"
#include "link/state.h"

std::atomic<int> gMgrSocket_fd{-1};

namespace {

constexpr int kNoSocket = -1;
constexpr int kLoggedCharacters = 250;

struct LinkState {
  Mutex mutex;
  std::shared_ptr<Connection> standing GUARDED_BY(mutex);
  std::atomic<Generation> generation{1};  // written with the mutex held
};

LinkState& TheLink() {
  return ProcessWide<LinkState>();
}

Mutex gSendMutex;

// Serialises attempts to connect. An attempt of an old generation is closed before the next one
// begins, so a Manager that accepts one connection of a process never takes the stray one.
Mutex gConnectMutex;

// The generation that this receive thread serves; none on other threads.
thread_local std::optional<Generation> served_generation;
thread_local bool acts_for_service = false;

bool ConnectTo(const char* path, int fd) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

// The decision counts for the generation that asked for it, also when connecting fails.
const char* PathFor(Generation generation) {
  const SocketPath chosen = ChooseSocketPath();
  const MutexLock lock(TheLink().mutex);
  if (TheLink().generation == generation) {
    SetFlags(chosen);
  }
  return chosen.path;
}

std::shared_ptr<Connection> MakeConnection(Generation generation) {
  // A program that the service forks and executes must not inherit the socket.
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

// The descriptor is published only once it can be used: a service that initialises while the
// receive thread tries to reconnect must not take an unconnected socket for the Manager.
bool Publish(const std::shared_ptr<Connection>& connection, Generation generation) {
  const MutexLock lock(TheLink().mutex);
  if (TheLink().generation != generation) {
    return false;
  }
  if (TheLink().standing) {
    TheLink().standing->ShutDown();
  }
  TheLink().standing = connection;
  gMgrSocket_fd = connection->fd();
  return true;
}

void Leave(const std::shared_ptr<Connection>& connection) {
  const MutexLock lock(TheLink().mutex);
  if (TheLink().standing == connection) {
    TheLink().standing.reset();
    gMgrSocket_fd = kNoSocket;
  }
  connection->ShutDown();
}

void LogSending(const char* msg) {
  LOG_AT(kAlways, "client Sending message %.*s", kLoggedCharacters, msg);
}

// Without a connection the send fails in the kernel, as on a closed one. MSG_NOSIGNAL is not
// needed: the kernel raises SIGPIPE for stream sockets, not for sequenced packets.
int SendPacket(const Connection* connection, const char* msg) REQUIRES(gSendMutex) {
  const int fd = connection == nullptr ? kNoSocket : connection->fd();
  if (sendto(fd, msg, strlen(msg), 0, nullptr, 0) == -1) {
    LOG_AT(kAlways, "client NOT able to send msg");
    return -1;
  }
  return 0;
}

}  // namespace

Connection::~Connection() {
  close(fd_);
}

void Connection::ShutDown() {
  shut_down_ = true;
  shutdown(fd_, SHUT_RDWR);
}

bool Connection::PeerHasClosed() const {
  pollfd watched{fd_, POLLRDHUP, 0};
  const bool closed = poll(&watched, 1, 0) > 0 && (watched.revents & POLLERR) == 0;
  return ended_ || (closed && !reset_ && !shut_down_);
}

StandingConnection CurrentConnection() {
  const MutexLock lock(TheLink().mutex);
  return {TheLink().standing, TheLink().generation};
}

Generation CurrentGeneration() {
  return TheLink().generation;
}

void ActForService() {
  acts_for_service = true;
}

bool NoteLoss(Connection& connection) {
  const MutexLock lock(TheLink().mutex);
  if (ThisThreadIsOutdated() || connection.is_being_left()) {
    return false;
  }
  connection.NoteEndOfFile();
  return true;
}

void BeginGeneration() {
  const MutexLock lock(TheLink().mutex);
  ++TheLink().generation;
}

void ServeGeneration(Generation generation) {
  served_generation = generation;
}

Generation ServedGeneration() {
  return served_generation.value_or(CurrentGeneration());
}

bool ThisThreadIsOutdated() {
  return served_generation.has_value() && *served_generation != CurrentGeneration();
}

bool NoteInitDone(bool done) {
  const MutexLock lock(TheLink().mutex);
  if (ThisThreadIsOutdated()) {
    return false;
  }
  gMgrInitDone = done;
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
  const bool first = connection->BeginLeaving();
  if (first && SendOn(connection, "EXIT") != 0) {
    LOG_AT(kFailure, "Failed to disconnect to manager - proceeding anyways");
  }
  Leave(connection);
  return first ? 0 : -1;
}

std::shared_ptr<Connection> ConnectionToSendOn() {
  return ThisThreadIsOutdated() && !acts_for_service ? nullptr : CurrentConnection().connection;
}

int SendOn(std::shared_ptr<Connection> connection, const char* msg) {
  LogSending(msg);
  const MutexLock lock(gSendMutex);
  const int result = SendPacket(connection.get(), msg);
  connection.reset();
  return result;
}

int connect_to_manager() {
  return ConnectFor(CurrentGeneration());
}

int disconnect_from_manager() {
  return Disconnect(CurrentConnection().connection);
}

int orvd_send_to_manager_raw(const char* msg) {
  LogSending(msg);
  const MutexLock lock(gSendMutex);
  return SendPacket(ConnectionToSendOn().get(), msg);
}
