// The largest message that the library can send.

#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <limits>
#include <system_error>

namespace orvex::detail {

// A packet must fit into the send buffer of its socket, together with 32 bytes of the kernel. The
// library's socket has the system's default size, so a socket made for the purpose is asked.
inline std::size_t AskForLargestPacket() {
  constexpr int kOverhead = 32;
  const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    throw std::system_error(errno, std::generic_category(), "socket");
  }
  int size = 0;
  socklen_t length = sizeof(size);
  const bool is_known = getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, &length) == 0;
  close(fd);
  return is_known && size > kOverhead ? static_cast<std::size_t>(size - kOverhead)
                                      : std::numeric_limits<std::size_t>::max();
}

// Asked by the first service of the process, whose constructor may throw. Later calls do not throw.
inline std::size_t LargestPacket() {
  static const std::size_t largest = AskForLargestPacket();
  return largest;
}

}  // namespace orvex::detail
