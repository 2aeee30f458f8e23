// SIGTERM and SIGINT stop a service.

#pragma once

#include <array>
#include <csignal>
#include <cstddef>

#include "orvex/detail/event_fd.h"

namespace orvex::detail {

// While an object exists, the two signals set its event; afterwards they do again what they did
// before. One at a time.
class StopSignals {
 public:
  explicit StopSignals(bool are_caught) : are_caught_(are_caught) {
    if (!are_caught_) {
      return;
    }
    Event().Clear();
    struct sigaction action = {};
    action.sa_handler = [](int /*signal*/) { Event().Set(); };
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], &action, &before_[i]);
    }
  }
  ~StopSignals() {
    for (std::size_t i = 0; are_caught_ && i < kSignals.size(); ++i) {
      sigaction(kSignals[i], &before_[i], nullptr);
    }
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  // A negative number when the signals are not caught.
  int fd() const noexcept { return are_caught_ ? Event().fd() : -1; }

 private:
  static constexpr std::array<int, 2> kSignals = {SIGTERM, SIGINT};

  // Never closed: the signal handler may still run on another thread when the signals are given
  // back.
  static const EventFd& Event() {
    static const EventFd& event = *new EventFd;
    return event;
  }

  const bool are_caught_;
  std::array<struct sigaction, kSignals.size()> before_ = {};
};

}  // namespace orvex::detail
