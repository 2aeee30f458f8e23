// Knows whether a thread runs one of the author's session, notification or loss handlers.

#pragma once

#include <stdexcept>
#include <string>

namespace orvex::detail {

// Exists while such a handler can run on this thread.
class HandlerScope {
 public:
  HandlerScope() noexcept : outer_(IsInHandler()) { IsInHandler() = true; }
  ~HandlerScope() { IsInHandler() = outer_; }
  HandlerScope(const HandlerScope&) = delete;
  HandlerScope& operator=(const HandlerScope&) = delete;

  // Throws std::logic_error when this thread runs such a handler. The library's receive thread runs
  // most of these handlers and alone delivers the Manager's answers. A call that waits for an
  // answer there would wait for itself.
  static void RefuseWaiting(const char* function) {
    if (IsInHandler()) {
      throw std::logic_error(std::string(function) +
                             " waits for the Manager: do not call it in a session, notification or"
                             " loss handler");
    }
  }

 private:
  static bool& IsInHandler() noexcept {
    static thread_local bool is_in_handler = false;
    return is_in_handler;
  }

  const bool outer_;
};

}  // namespace orvex::detail
