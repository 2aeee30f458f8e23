// Descriptors, and AF_UNIX sockets of type SOCK_SEQPACKET. A failure of the system is thrown as
// std::system_error, unless a function says otherwise.

#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvd {

inline constexpr std::size_t kLargestPacket = std::size_t{1} << 20;

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    Close();
    fd_ = std::exchange(other.fd_, -1);
    return *this;
  }
  int fd() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  void Close() {
    if (fd_ >= 0) {
      close(std::exchange(fd_, -1));
    }
  }

 private:
  int fd_;
};

// Throws errno with `what` if `result` is negative.
int Checked(int result, const std::string& what);

// Returns a non-blocking socket. Creates a missing folder in /dev/socket, but no other one.
// Replaces a socket that no process has any more, but no other file. The file appears when clients
// can connect to it. Until then the socket is called `path`.new.
Descriptor ListenAt(const std::string& path);
// The number of the file at `path`, 0 without a file.
std::uint64_t InodeOf(const std::string& path);
// Removes the socket, unless another file has taken its place. Call it before the socket is closed.
void RemoveSocket(const std::string& path, std::uint64_t inode);
// Returns a non-blocking socket. Returns no descriptor, and errno, if nobody accepts.
Descriptor ConnectTo(const std::string& path);
// Returns whether a process has a socket at `path`. It makes no connection.
bool IsServed(const std::string& path);

// Makes room for a packet of `bytes`. Exceeding the system's limit needs privileges.
void GrowSendBuffer(int fd, std::size_t bytes);
// Sends one packet. Makes room for a large one. Returns what send returns.
ssize_t SendPacket(int fd, std::string_view bytes, int flags = 0);
// Receives one packet. Returns what recv returns. Also reads what the other end had sent before it
// reset the connection: the system reports the reset first, and once.
ssize_t ReceivePacket(int fd, std::vector<char>& buffer, int flags);
// The process at the other end, if the kernel tells.
std::optional<int> PeerPid(int fd);

}  // namespace orvd
