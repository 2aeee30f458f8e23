// A file descriptor that wakes a thread that polls.

#pragma once

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <system_error>

namespace orvex::detail {

class EventFd {
 public:
  EventFd() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0) {
      throw std::system_error(errno, std::generic_category(), "eventfd");
    }
  }
  ~EventFd() { close(fd_); }
  EventFd(const EventFd&) = delete;
  EventFd& operator=(const EventFd&) = delete;

  int fd() const noexcept { return fd_; }

  // Any thread, and signal handlers.
  void Set() const noexcept { Set(fd_); }
  static void Set(int fd) noexcept {
    const int error = errno;
    const uint64_t one = 1;
    // It fails only when the event is set already.
    [[maybe_unused]] const ssize_t written = write(fd, &one, sizeof(one));
    errno = error;
  }
  void Clear() const noexcept {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(fd_, &count, sizeof(count));
  }

  // Waits until one of the descriptors is set, or the limit is over. Then it returns false. A
  // negative limit means no limit. A negative descriptor is never set.
  static bool Wait(std::initializer_list<int> fds, std::chrono::milliseconds limit) noexcept {
    using Clock = std::chrono::steady_clock;
    constexpr int64_t kLongestMs = 3600000;
    const Clock::time_point end = Clock::now() + limit;
    int64_t left_ms = limit.count();
    int result = Poll(fds, std::min(left_ms, kLongestMs));
    while (result < 0 || (result == 0 && left_ms > kLongestMs)) {
      if (limit.count() >= 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        left_ms = std::max<int64_t>(left.count(), 0);
      }
      result = Poll(fds, std::min(left_ms, kLongestMs));
    }
    return result > 0;
  }

 private:
  // Returns a negative number when a signal came.
  static int Poll(std::initializer_list<int> fds, int64_t limit_ms) noexcept {
    constexpr std::size_t kMost = 4;
    pollfd watched[kMost] = {};
    nfds_t count = 0;
    for (const int fd : fds) {
      watched[count++] = {fd, POLLIN, 0};
    }
    return poll(watched, count, static_cast<int>(limit_ms));
  }

  const int fd_;
};

}  // namespace orvex::detail
