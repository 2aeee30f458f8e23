#include "load_link.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

namespace orvd {
LoadLink::LoadLink(const std::string& path) : peer_(path) {}

bool LoadLink::Connect(Milliseconds limit) {
  if (!peer_.WaitConnected(limit)) {
    return false;
  }
  link_ = Descriptor(peer_.HandOver());
  if (!open()) {
    peer_.SkipAll();  // it has left again
    return false;
  }
  while (std::optional<std::string> message = peer_.Next(Milliseconds(0))) {
    early_.push_back(std::move(*message));
  }
  pid_ = PeerPid(link_.fd()).value_or(0);
  may_send_ = true;
  return true;
}

void LoadLink::Wait(Milliseconds limit, int stop) const {
  if (!early_.empty()) {
    return;
  }
  const auto events = static_cast<short>(POLLIN | (kept_.empty() ? 0 : POLLOUT));
  std::array<pollfd, 2> watched{{{link_.fd(), events, 0}, {stop, POLLIN, 0}}};
  poll(watched.data(), watched.size(), static_cast<int>(limit.count()));
}

std::optional<std::string_view> LoadLink::Receive() {
  if (!early_.empty()) {
    current_ = std::move(early_.front());
    early_.pop_front();
    return current_;
  }
  if (!open()) {
    return std::nullopt;
  }
  const ssize_t size = ReceivePacket(link_.fd(), buffer_, MSG_DONTWAIT);
  if (size > 0) {
    return std::string_view(buffer_.data(), static_cast<std::size_t>(size));
  }
  if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
    Close();
  }
  return std::nullopt;
}

bool LoadLink::TrySend(std::string_view message) {
  if (send(link_.fd(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT) >= 0) {
    return true;
  }
  may_send_ = errno == EAGAIN || errno == EINTR;
  return !may_send_;
}

void LoadLink::Send(std::string_view message) {
  if (may_send_ && (!kept_.empty() || !TrySend(message))) {
    kept_.emplace_back(message);
  }
}

bool LoadLink::Flush() {
  while (may_send_ && !kept_.empty() && TrySend(kept_.front())) {
    kept_.pop_front();
  }
  return kept_.empty();
}

void LoadLink::Shut() {
  may_send_ = false;
  static_cast<void>(shutdown(link_.fd(), SHUT_RDWR));
}

void LoadLink::ShutSending() {
  may_send_ = false;
  shutdown(link_.fd(), SHUT_WR);
}

void LoadLink::SendEmptyPacket() {
  may_send_ = false;
  send(link_.fd(), "", 0, MSG_NOSIGNAL);
}

void LoadLink::Close() {
  link_.Close();
  may_send_ = false;
  early_.clear();
  kept_.clear();
}

bool LoadLink::AwaitUnread(Milliseconds limit) const {
  pollfd watched{link_.fd(), POLLIN, 0};
  return poll(&watched, 1, static_cast<int>(limit.count())) > 0;
}

}  // namespace orvd
