// The tasks that run: their limit, and the wait for their end.

#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace orvex::detail {

enum class Admission { kAdmitted, kTooMany, kStopping };

// A task takes a place until its function returns, so that a client that has the answer can call
// again. It counts as running until its thread ends, because the library sends the answer after the
// function has returned. Any thread.
class RunningTasks {
 public:
  explicit RunningTasks(std::size_t limit) noexcept : limit_(limit) {}

  Admission Begin() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (is_closed_) {
      return Admission::kStopping;
    }
    if (limit_ != 0 && taken_places_ >= limit_) {
      return Admission::kTooMany;
    }
    ++taken_places_;
    ++count_;
    return Admission::kAdmitted;
  }

  // The function of an admitted task returns.
  void FreePlace() noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    --taken_places_;
  }

  // The thread of an admitted task ends.
  void End() noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (--count_ == 0) {
      none_.notify_all();
    }
  }

  // Admits no further task. Returns how many run.
  std::size_t Close() noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_closed_ = true;
    return count_;
  }

  // Returns how many still run when all have ended or the limit is over.
  std::size_t AwaitEnd(std::chrono::steady_clock::duration limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    none_.wait_for(lock, limit, [this] { return count_ == 0; });
    return count_;
  }

  // The service has ended. Tasks that still wait for their turn must not call the author.
  void Abandon() noexcept { is_abandoned_ = true; }
  bool IsAbandoned() const noexcept { return is_abandoned_; }

 private:
  const std::size_t limit_;  // 0: without limit
  std::mutex mutex_;
  std::condition_variable none_;
  std::size_t taken_places_ = 0;
  std::size_t count_ = 0;
  bool is_closed_ = false;
  std::atomic<bool> is_abandoned_{false};
};

}  // namespace orvex::detail
