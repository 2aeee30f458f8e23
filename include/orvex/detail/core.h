// What a service, its tasks and its callbacks share. It exists until the last of them has ended.

#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "orvex/changes.h"
#include "orvex/detail/event_fd.h"
#include "orvex/detail/handler_scope.h"
#include "orvex/detail/largest_packet.h"
#include "orvex/detail/link_events.h"
#include "orvex/detail/log.h"
#include "orvex/detail/offer.h"
#include "orvex/detail/running_tasks.h"
#include "orvex/detail/session_table.h"
#include "orvex/options.h"

namespace orvex::detail {

// The author's handlers that belong to the service as a whole.
struct ServiceHandlers {
  std::function<void()> on_lost;
  std::function<void()> on_back;
  std::function<void(const StateChange&)> on_state_change;
  std::function<void(const StateChange&)> on_system_setting_change;
  std::function<void(const PermissionChange&)> on_permission_change;
};

// No duration can overflow a time point.
inline Options Bounded(Options options) {
  using std::chrono::seconds;
  constexpr seconds kLongest = std::chrono::hours(24 * 365);
  for (seconds* duration : {&options.answer_limit, &options.drain, &options.heartbeat}) {
    *duration = std::clamp(*duration, seconds(0), kLongest);
  }
  return options;
}

class Core {
 public:
  explicit Core(Options its_options)
      : options(Bounded(std::move(its_options))), log(options.name), tasks(options.max_tasks) {
    LargestPacket();
  }

  // Calls one of the author's handlers, if there is one. An exception becomes a log line.
  template <typename Handler, typename... Arguments>
  void Call(const char* name, const Handler& handler, Arguments&&... arguments) const noexcept {
    const HandlerScope scope;
    try {
      if (handler) {
        handler(std::forward<Arguments>(arguments)...);
      }
    } catch (const std::exception& exception) {
      log.Error({name, " threw: ", exception.what(), "; the service goes on"});
    } catch (...) {
      log.Error({name, " threw an exception; the service goes on"});
    }
  }

  void TellEnd(Pair& pair) const noexcept {
    for (const auto& offer : offers) {
      if (offer->opcode == pair.session.opcode()) {
        Call("OnSessionEnd", offer->on_session_end, pair.session);
      }
    }
  }

  // Tells the end of every pair that has not ended.
  void EndAllSessions() {
    for (const auto& pair : sessions.RemoveAll()) {
      if (pair != nullptr) {
        TellEnd(*pair);
      }
    }
  }

  const Options options;
  const Log log;
  std::vector<std::unique_ptr<Offer>> offers;  // by opcode
  ServiceHandlers handlers;
  std::atomic<bool> has_begun{false};  // Run was called: the offers do not change any more

  SessionTable sessions;
  RunningTasks tasks;
  const std::shared_ptr<LinkEvents> link = std::make_shared<LinkEvents>();
  const EventFd stop;  // set once, by Stop
};

// Throws std::logic_error after Run has begun.
inline void CheckNotBegun(const Core& core, const char* function) {
  if (core.has_begun) {
    throw std::logic_error(std::string(function) + ": call it before Run");
  }
}

}  // namespace orvex::detail
