#include "packet_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>

namespace orvd {
namespace {

// A larger packet would keep too much of the sender's buffer occupied.
constexpr std::size_t kLargestHeld = 4096;
#ifndef SO_PEEK_OFF
constexpr int SO_PEEK_OFF = 42;
#endif

}  // namespace

// With SO_TIMESTAMP each packet comes with its time. That tells an empty packet from the end. With
// SO_PEEK_OFF each MSG_PEEK returns the next packet.
PacketSocket::PacketSocket(Descriptor socket)
    : socket_(std::move(socket)), buffer_(new char[kLargestPacket + 1]) {
  const int on = 1;
  const int from_the_first = 0;
  Checked(fcntl(fd(), F_SETFL, 0), "fcntl");
  Checked(setsockopt(fd(), SOL_SOCKET, SO_TIMESTAMP, &on, sizeof(on)), "SO_TIMESTAMP");
  peeks_ = setsockopt(fd(), SOL_SOCKET, SO_PEEK_OFF, &from_the_first, sizeof(from_the_first)) == 0;
}

Came PacketSocket::Receive(std::string_view& bytes, int flags) {
  iovec part{buffer_.get(), kLargestPacket + 1};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(timeval))> time{};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = time.data();
  message.msg_controllen = time.size();
  const ssize_t size = recvmsg(fd(), &message, flags | (peeks_ ? MSG_PEEK : 0));
  if (size < 0) {
    return errno == ECONNRESET                 ? Came::kReset
           : errno == EAGAIN || errno == EINTR ? Came::kNothing
                                               : Came::kEnd;
  }
  bytes = {buffer_.get(), static_cast<std::size_t>(size)};
  return size == 0 && message.msg_controllen == 0 ? Came::kEnd : Came::kPacket;
}

void PacketSocket::Handled(std::size_t size) {
  if (!peeks_) {
    return;
  }
  if (held_) {
    recv(fd(), nullptr, 0, MSG_DONTWAIT);
  }
  held_ = size <= kLargestHeld;
  if (!held_) {
    recv(fd(), nullptr, 0, MSG_DONTWAIT);
  }
}

bool PacketSocket::HungUp(int limit_ms) const {
  pollfd watched{fd(), 0, 0};
  return poll(&watched, 1, limit_ms) > 0 && (watched.revents & POLLHUP) != 0;
}

// A close with unread packets would reset the connection. So this stops further packets and reads
// those that have arrived.
void PacketSocket::Close() {
  if (!socket_) {
    return;
  }
  shutdown(fd(), SHUT_RDWR);
  std::string_view bytes;
  while (Receive(bytes, MSG_DONTWAIT) == Came::kPacket) {
    Handled(bytes.size());
  }
  if (held_) {
    recv(fd(), nullptr, 0, MSG_DONTWAIT);
  }
  socket_.Close();
}

}  // namespace orvd
