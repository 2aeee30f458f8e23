// Lets tasks through one at a time, in the order in which they come.

#pragma once

#include <condition_variable>
#include <mutex>

namespace orvex::detail {

// Any thread. A thread that has entered must leave before it enters again.
class SerialQueue {
 public:
  void Enter() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!is_taken_) {
      is_taken_ = true;
      return;
    }
    Waiter self;
    (last_ != nullptr ? last_->next : first_) = &self;
    last_ = &self;
    self.changed.wait(lock, [&self] { return self.may_enter; });
  }

  void Leave() noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (first_ == nullptr) {
      is_taken_ = false;
      return;
    }
    Waiter& entering = *first_;
    first_ = entering.next;
    last_ = first_ != nullptr ? last_ : nullptr;
    entering.may_enter = true;
    entering.changed.notify_one();  // with the mutex held: the waiter still exists
  }

 private:
  struct Waiter {
    std::condition_variable changed;
    bool may_enter = false;
    Waiter* next = nullptr;
  };

  std::mutex mutex_;
  Waiter* first_ = nullptr;
  Waiter* last_ = nullptr;
  bool is_taken_ = false;
};

}  // namespace orvex::detail
