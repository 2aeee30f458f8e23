// Limits calls of the library that wait for the Manager without limit.

#pragma once

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>

#include "orvex/detail/core.h"
#include "orvex/detail/event_fd.h"

namespace orvex::detail {

// What ends the wait for a call: the stop of the service, asked for by Stop or by a signal, and the
// end of the call.
struct WaitEvents {
  int stop;
  int signals;  // negative when the signals are not caught
  const EventFd& is_done;
};

// Exists during one call. Such a call cannot be left, so a thread ends the process when the call
// takes too long: with the exit code 75, which means "try again later", so that the service is
// started again. When the service is asked to stop during the call, the process ends after the time
// for running tasks, but not within a second, with the exit code 0. It does not flush the streams
// of the C library, because another thread may hold the lock of one for ever.
class AnswerLimit {
 public:
  // `call` names it in the log. `own_time` is what the call may take by itself.
  AnswerLimit(const Core& core, const WaitEvents& events, std::string call,
              std::chrono::seconds own_time)
      : core_(core), events_(events), call_(std::move(call)), own_time_(own_time) {
    events_.is_done.Clear();
    const auto watch = [](void* self) -> void* {
      static_cast<const AnswerLimit*>(self)->Watch();
      return nullptr;
    };
    is_watched_ = pthread_create(&thread_, nullptr, watch, this) == 0;
    if (!is_watched_) {
      core_.log.Error({"no thread can watch ", call_, "; it waits without limit"});
    }
  }
  ~AnswerLimit() {
    events_.is_done.Set();
    if (is_watched_) {
      pthread_join(thread_, nullptr);
    }
  }
  AnswerLimit(const AnswerLimit&) = delete;
  AnswerLimit& operator=(const AnswerLimit&) = delete;

 private:
  static constexpr int kTryAgainLater = 75;

  void Watch() const {
    constexpr std::chrono::seconds kWithoutLimit{-1};
    const std::chrono::seconds answer_limit = core_.options.answer_limit;
    const auto limit = answer_limit.count() != 0 ? answer_limit + own_time_ : kWithoutLimit;
    if (!EventFd::Wait({events_.is_done.fd(), events_.stop, events_.signals}, limit)) {
      const bool was_lost = core_.link->state().is_terminated;
      core_.log.Error({was_lost ? "the Manager was lost during " : "the Manager has not answered ",
                       call_, was_lost ? " and did not answer for " : " for ", limit.count(),
                       " s; the process ends with exit code ", kTryAgainLater});
      std::_Exit(kTryAgainLater);
    }
    constexpr std::chrono::seconds kShortest{1};
    if (!EventFd::Wait({events_.is_done.fd()},
                       std::max(core_.options.drain, kShortest) + own_time_)) {
      core_.log.Error({"the service stops, but ", call_, " still waits; the process ends"});
      std::_Exit(EXIT_SUCCESS);
    }
  }

  const Core& core_;
  const WaitEvents events_;
  const std::string call_;
  const std::chrono::seconds own_time_;
  bool is_watched_ = false;
  pthread_t thread_{};
};

}  // namespace orvex::detail
