// SIGINT, SIGTERM and SIGHUP as an end that a command asks for, so that it prints its summary.

#pragma once

#include <poll.h>
#include <sys/signalfd.h>

#include <chrono>
#include <csignal>

#include "unix_socket.h"

namespace orvd {

// Construct it before any thread is started: threads take over the blocked signals.
class StopSignals {
 public:
  StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!IsIgnored(SIGHUP)) {  // nohup
      sigaddset(&signals, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signalfd_ = Descriptor(Checked(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"));
  }

  // Readable after the first signal, for poll. Nobody reads it, so it stays readable.
  int fd() const { return signalfd_.fd(); }
  // Waits up to `limit` for a signal. Returns whether one has come.
  bool Wait(std::chrono::milliseconds limit) const {
    pollfd watched{fd(), POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(limit.count())) > 0;
  }
  bool Came() const { return Wait(std::chrono::milliseconds(0)); }

 private:
  static bool IsIgnored(int number) {
    struct sigaction action {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
  }

  Descriptor signalfd_;
};

}  // namespace orvd
