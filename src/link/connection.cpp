#include "link/connection.h"

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

struct Link {
  Mutex mutex;
  std::shared_ptr<Connection> standing GUARDED_BY(mutex);
  uint64_t tenure GUARDED_BY(mutex) = 0;
};

Link& TheLink() {
  return ProcessWide<Link>();
}

Mutex gSendMutex;

// One attempt at a time: one that is superseded meanwhile is over, and closed, before the new
// tenure's own, or a Manager that serves one connection of a process would take the stray one.
Mutex gConnectMutex;

// The number of the tenure that this receive thread serves; none on other threads.
thread_local std::optional<uint64_t> served_tenure;

bool IsSuperseded(uint64_t current_tenure) {
  return served_tenure.has_value() && *served_tenure != current_tenure;
}

std::shared_ptr<Connection> StandingConnection() {
  const MutexLock lock(TheLink().mutex);
  return TheLink().standing;
}

bool ConnectTo(const char* path, int fd) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

// The decision counts for the tenure that asked for it, whether or not the connection comes about.
const char* PathFor(uint64_t tenure_number) {
  const SocketPath chosen = ChooseSocketPath();
  const MutexLock lock(TheLink().mutex);
  if (TheLink().tenure == tenure_number) {
    SetFlags(chosen);
  }
  return chosen.path;
}

std::shared_ptr<Connection> MakeConnection(uint64_t tenure_number) {
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
  if (fd < 0) {
    LOG_AT(kFailure, "Failed to connect to ORVEX Manager (socket creation failed %s)",
           ErrorText(errno));
    return nullptr;
  }
  auto connection = std::make_shared<Connection>(fd);
  if (!ConnectTo(PathFor(tenure_number), fd)) {
    const int error = errno;
    connection.reset();
    LOG_AT(kFailure, "Failed to connect to ORVEX Manager (connection failed %s)", ErrorText(error));
  }
  return connection;
}

// The descriptor is published only once it can be used: a service that initialises while the
// receive thread tries to reconnect must not take an unconnected socket for the Manager.
bool Publish(const std::shared_ptr<Connection>& connection, uint64_t tenure_number) {
  const MutexLock lock(TheLink().mutex);
  if (TheLink().tenure != tenure_number) {
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

// With no connection the send fails in the kernel, as on a closed one.
int SendOn(const Connection* connection, const char* msg) REQUIRES(gSendMutex) {
  const int fd = connection == nullptr ? kNoSocket : connection->fd();
  if (sendto(fd, msg, strlen(msg), 0, nullptr, 0) == -1) {
    LOG_AT(kAlways, "client NOT able to send msg");
    return -1;
  }
  return 0;
}

void LogSending(const char* msg) {
  LOG_AT(kAlways, "client Sending message %.*s", kLoggedCharacters, msg);
}

void SendGoodbye(const Connection& connection) {
  LogSending("EXIT");
  const MutexLock lock(gSendMutex);
  if (SendOn(&connection, "EXIT") != 0) {
    LOG_AT(kFailure, "Failed to disconnect to manager - proceeding anyways");
  }
}

}  // namespace

Connection::~Connection() {
  close(fd_);
}

void Connection::ShutDown() {
  shut_down_ = true;
  shutdown(fd_, SHUT_RDWR);
}

Tenure ServeCurrentTenure() {
  const MutexLock lock(TheLink().mutex);
  served_tenure = TheLink().tenure;
  return {TheLink().standing, TheLink().tenure};
}

void BeginTenure() {
  served_tenure.reset();
  const MutexLock lock(TheLink().mutex);
  ++TheLink().tenure;
}

bool IsCurrent(const Tenure& tenure) {
  const MutexLock lock(TheLink().mutex);
  return TheLink().tenure == tenure.number && TheLink().standing == tenure.connection;
}

uint64_t CurrentTenureNumber() {
  const MutexLock lock(TheLink().mutex);
  return TheLink().tenure;
}

bool ThisThreadIsSuperseded() {
  return IsSuperseded(CurrentTenureNumber());
}

bool NoteInitDone(bool done) {
  const MutexLock lock(TheLink().mutex);
  if (IsSuperseded(TheLink().tenure)) {
    return false;
  }
  gMgrInitDone = done;
  return true;
}

int ConnectFor(uint64_t tenure_number) {
  const MutexLock lock(gConnectMutex);
  if (CurrentTenureNumber() != tenure_number) {
    return -1;
  }
  const std::shared_ptr<Connection> connection = MakeConnection(tenure_number);
  if (!connection || !Publish(connection, tenure_number)) {
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
  if (first) {
    SendGoodbye(*connection);
  }
  Leave(connection);
  return first ? 0 : -1;
}

int connect_to_manager() {
  return ConnectFor(CurrentTenureNumber());
}

int disconnect_from_manager() {
  return Disconnect(StandingConnection());
}

int orvd_send_to_manager_raw(const char* msg) {
  LogSending(msg);
  const MutexLock lock(gSendMutex);
  return SendOn(ThisThreadIsSuperseded() ? nullptr : StandingConnection().get(), msg);
}
