#include "client/receive_thread.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include "base/detached_thread.h"
#include "base/log.h"
#include "client/dispatch.h"
#include "link/disconnect.h"
#include "link/message_parser.h"
#include "link/reconnection.h"
#include "link/service_id.h"
#include "sessions/lost_sessions.h"
#include "sessions/session_state.h"
#include "sessions/terminate_sessions.h"

namespace orvd_client {

namespace {

constexpr size_t kFirstBufferSize = 5120;
// Only tasks are large, and tasks need a session. So the buffer grows at the first session.
constexpr size_t kGrownBufferSize = 524288;
constexpr useconds_t kPauseAfterError = 500000;

class Receiver {
 public:
  explicit Receiver(std::shared_ptr<Connection> connection)
      : connection_(std::move(connection)), buffer_(kFirstBufferSize) {}

  // Receives and handles one message.
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

// Reports EBADF instead of the end of file or the error that recvfrom returned, if this process
// disconnects or if the generation has ended. Reports EBADF in any case after a shutdown.
ssize_t Receiver::Receive() {
  ssize_t received = -1;
  if (connection_) {
    received = recvfrom(connection_->fd(), buffer_.data(), buffer_.size(), 0, nullptr, nullptr);
  }
  const int error = errno;
  const bool disconnected =
      !connection_ || connection_->is_shut_down() || (received == 0 && !RecordLoss(*connection_)) ||
      (received < 0 && (connection_->is_disconnecting() || ThisThreadIsOutdated()));
  errno = disconnected ? EBADF : error;
  return disconnected ? -1 : received;
}

NextAction Receiver::OnClosedByManager() {
  const int error = errno;
  RecordLostSessions(ServedGeneration());
  LOG_AT(kFailure, "Communication with manager failed (%s)", ErrorText(error));
  const bool disconnected = Disconnect(connection_) == 0;
  connection_.reset();  // closes the descriptor now, because the attempts to reconnect take long
  if (disconnected && !ThisThreadIsOutdated()) {
    terminate_sessions();
  }
  // A callback, or another thread, may have deinitialised.
  if (disconnected && SetInitDone(false) && ReconnectFor(ServedGeneration()) == 0 &&
      !ThisThreadIsOutdated()) {
    send_reconnection_notification();
  }
  if (ThisThreadIsOutdated()) {
    RemoveLostSessions();
  }
  return NextAction::kEndThread;
}

NextAction Receiver::OnError(ssize_t result) {
  const int error = errno;
  if (error == ECONNRESET || error == EBADF) {
    if (error == ECONNRESET) {
      connection_->RecordReset();
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
  LOG_AT(kEveryLevel, "Client received!!!");
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

// This thread must not get a name: the choice of the socket path reads the name that it inherits.
void* recv_msg_from_mgr(void* argument) {
  const std::unique_ptr<ConnectionAndGeneration> current(
      static_cast<ConnectionAndGeneration*>(argument));
  ServeGeneration(current->generation);
  Receiver receiver(std::move(current->connection));
  while (receiver.ServeOne() != NextAction::kEndThread) {
  }
  return nullptr;
}

}  // namespace

bool StartReceiveThread(const ConnectionAndGeneration& current) {
  auto argument = std::make_unique<ConnectionAndGeneration>(current);
  if (StartDetachedThread(recv_msg_from_mgr, argument.get()) != 0) {
    return false;
  }
  static_cast<void>(argument.release());
  return true;
}

}  // namespace orvd_client
