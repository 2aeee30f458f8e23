#include "link/receive_thread.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "link/connection.h"
#include "link/detached_thread.h"
#include "link/dispatch.h"
#include "link/log.h"
#include "link/message_parser.h"
#include "link/reconnection.h"
#include "sessions/lost_sessions.h"

namespace {

constexpr size_t kFirstBufferSize = 5120;
// Tasks come only to sessions, so the room for large ones is made at the first of these.
constexpr size_t kGrownBufferSize = 524288;
constexpr useconds_t kPauseAfterError = 500000;

class Receiver {
 public:
  explicit Receiver(std::shared_ptr<Connection> connection)
      : connection_(std::move(connection)), buffer_(kFirstBufferSize) {}

  // One turn of the loop.
  NextAction ServeOne();

 private:
  ssize_t Receive();
  NextAction OnClosedByManager();
  NextAction OnError(ssize_t result);
  NextAction OnPacket(size_t size);
  void Clear(size_t size) { std::fill_n(buffer_.begin(), size, '\0'); }

  std::shared_ptr<Connection> connection_;
  std::vector<char> buffer_;
};

NextAction Receiver::ServeOne() {
  LOG_AT(kDetail, "Waiting for recv from server");
  const ssize_t received = Receive();
  if (received == 0) {
    return OnClosedByManager();
  }
  return received < 0 ? OnError(received) : OnPacket(static_cast<size_t>(received));
}

// Once this process has begun to leave the connection, EBADF is reported whatever recvfrom
// returned.
ssize_t Receiver::Receive() {
  ssize_t received = -1;
  if (connection_) {
    received = recvfrom(connection_->fd(), buffer_.data(), buffer_.size(), 0, nullptr, nullptr);
  }
  const int error = errno;
  const bool left = !connection_ || connection_->is_shut_down() ||
                    (received == 0 && !NoteLoss(*connection_)) ||
                    (received < 0 && (connection_->is_being_left() || ThisThreadIsOutdated()));
  errno = left ? EBADF : error;
  return left ? -1 : received;
}

NextAction Receiver::OnClosedByManager() {
  const int error = errno;
  NoteLostSessions(ServedGeneration());
  LOG_AT(kFailure, "Communication with manager failed (%s)", ErrorText(error));
  const bool left = Disconnect(connection_) == 0;
  connection_.reset();  // reconnecting takes long, and nobody needs the descriptor any more
  if (left && !ThisThreadIsOutdated()) {
    EndAllSessions();
  }
  // A callback, or another thread, may have deinitialised.
  if (left && NoteInitDone(false) && ReconnectFor(ServedGeneration()) == 0 &&
      !ThisThreadIsOutdated()) {
    TellReconnected();
  }
  if (ThisThreadIsOutdated()) {
    ForgetLostSessions();
  }
  return NextAction::kEndThread;
}

NextAction Receiver::OnError(ssize_t result) {
  const int error = errno;
  if (error == ECONNRESET || error == EBADF) {
    if (error == ECONNRESET) {
      connection_->NoteReset();
    }
    LOG_AT(kFailure, "%s: recv failed, exit thread.. in_size = %ld, error %d:(%s)",
           "recv_msg_from_mgr", static_cast<long>(result), error, ErrorText(error));
    return NextAction::kEndThread;
  }
  LOG_AT(kFailure, "Error receiving msg from manager (%s)", ErrorText(error));
  Clear(buffer_.size());
  usleep(kPauseAfterError);
  return NextAction::kContinue;
}

NextAction Receiver::OnPacket(size_t size) {
  LOG_AT(kAlways, "Client received!!!");
  Json::Value message;
  if (!ParseMessage(buffer_.data(), size, message)) {
    LOG_AT(kFailure, "Failed to parse ORVEX manager request");
    Clear(size);
    usleep(kPauseAfterError);
    return NextAction::kContinue;
  }
  const NextAction next = Dispatch(message);
  if (next == NextAction::kEndThread) {
    return next;
  }
  Clear(size);
  if (next == NextAction::kGrowBuffer) {
    buffer_.resize(kGrownBufferSize);
  }
  return NextAction::kContinue;
}

// Never given a name: the choice of the socket path reads the name that this thread inherits.
void* recv_msg_from_mgr(void* argument) {
  const std::unique_ptr<StandingConnection> standing(static_cast<StandingConnection*>(argument));
  ServeGeneration(standing->generation);
  Receiver receiver(std::move(standing->connection));
  while (receiver.ServeOne() != NextAction::kEndThread) {
  }
  return nullptr;
}

}  // namespace

bool StartReceiveThread(const StandingConnection& standing) {
  auto argument = std::make_unique<StandingConnection>(standing);
  if (StartDetachedThread(recv_msg_from_mgr, argument.get()) != 0) {
    return false;
  }
  static_cast<void>(argument.release());
  return true;
}
