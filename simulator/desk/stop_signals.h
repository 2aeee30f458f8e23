// SIGINT and SIGTERM as an end that a command asks for, so that it prints its summary.

#pragma once

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

namespace orvd {

// Construct it before any thread is started: threads take over the blocked signals.
class StopSignals {
 public:
  StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    fd_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (fd_ < 0) {
      throw std::system_error(errno, std::generic_category(), "signalfd");
    }
  }
  ~StopSignals() { close(fd_); }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // Readable after the first signal, for poll. Nobody reads it, so it stays readable.
  int fd() const { return fd_; }
  // Waits up to `limit` for a signal. Returns whether one has come.
  bool Wait(std::chrono::milliseconds limit) const {
    pollfd watched{fd_, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(limit.count())) > 0;
  }
  bool Came() const { return Wait(std::chrono::milliseconds(0)); }

 private:
  int fd_ = -1;
};

}  // namespace orvd
