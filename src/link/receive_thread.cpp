#include "link/receive_thread.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "link/connection.h"
#include "link/detached_thread.h"
#include "link/dispatch.h"
#include "link/log.h"
#include "link/message_parser.h"
#include "link/reconnection.h"

namespace {

constexpr size_t kFirstBufferSize = 5120;
// Tasks come only to sessions, so the room for large ones is made at the first of these.
constexpr size_t kGrownBufferSize = 524288;
constexpr useconds_t kPauseAfterError = 500000;

enum class Outcome { kContinue, kEndThread };

class Receiver {
 public:
  Receiver() : tenure_(ServeCurrentTenure()), buffer_(kFirstBufferSize) {}

  // One turn of the loop.
  Outcome ServeOne();

 private:
  ssize_t Receive();
  Outcome OnClosedByManager() const;
  Outcome OnError(ssize_t result);
  Outcome OnPacket(size_t size);
  void Forget(size_t size) { std::fill_n(buffer_.begin(), size, '\0'); }

  const Tenure tenure_;
  std::vector<char> buffer_;
};

Outcome Receiver::ServeOne() {
  LOG_AT(kDetail, "Waiting for recv from server");
  const ssize_t received = Receive();
  if (received == 0) {
    return OnClosedByManager();
  }
  return received < 0 ? OnError(received) : OnPacket(static_cast<size_t>(received));
}

// What this process has left, or begun to leave, reads as a closed descriptor, whatever the peer
// did to it.
ssize_t Receiver::Receive() {
  const Connection* connection = tenure_.connection.get();
  ssize_t received = -1;
  if (connection != nullptr) {
    received = recvfrom(connection->fd(), buffer_.data(), buffer_.size(), 0, nullptr, nullptr);
  }
  const int error = errno;
  const bool left = connection == nullptr || connection->is_shut_down() ||
                    (received <= 0 && (connection->is_being_left() || !IsCurrent(tenure_)));
  errno = left ? EBADF : error;
  return left ? -1 : received;
}

Outcome Receiver::OnClosedByManager() const {
  LOG_AT(kFailure, "Communication with manager failed (%s)", ErrorText(errno));
  if (Disconnect(tenure_.connection) != 0) {
    return Outcome::kEndThread;
  }
  if (!ThisThreadIsSuperseded()) {
    EndAllSessions();
  }
  // Also a callback of this thread may have deinitialised.
  const bool still_served = CurrentTenureNumber() == tenure_.number && NoteInitDone(false);
  if (still_served && ReconnectFor(tenure_.number) == 0 && !ThisThreadIsSuperseded()) {
    TellReconnected();
  }
  return Outcome::kEndThread;
}

Outcome Receiver::OnError(ssize_t result) {
  const int error = errno;
  if (error == ECONNRESET || error == EBADF) {
    LOG_AT(kFailure, "%s: recv failed, exit thread.. in_size = %ld, error %d:(%s)",
           "recv_msg_from_mgr", static_cast<long>(result), error, ErrorText(error));
    return Outcome::kEndThread;
  }
  LOG_AT(kFailure, "Error receiving msg from manager (%s)", ErrorText(error));
  Forget(buffer_.size());
  usleep(kPauseAfterError);
  return Outcome::kContinue;
}

Outcome Receiver::OnPacket(size_t size) {
  LOG_AT(kAlways, "Client received!!!");
  Json::Value message;
  if (!ParseMessage(buffer_.data(), size, message)) {
    LOG_AT(kFailure, "Failed to parse ORVEX manager request");
    Forget(size);
    usleep(kPauseAfterError);
    return Outcome::kContinue;
  }
  const After after = Dispatch(message);
  if (after == After::kEndThread) {
    return Outcome::kEndThread;
  }
  Forget(size);
  if (after == After::kGrowBuffer) {
    buffer_.resize(kGrownBufferSize);
  }
  return Outcome::kContinue;
}

// Never given a name: the choice of the socket path reads the name that this thread inherits.
void* recv_msg_from_mgr(void* /*ignored*/) {
  Receiver receiver;
  while (receiver.ServeOne() == Outcome::kContinue) {
  }
  return nullptr;
}

}  // namespace

bool StartReceiveThread() {
  return StartDetachedThread(recv_msg_from_mgr, nullptr) == 0;
}
