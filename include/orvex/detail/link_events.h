// What the library's receive thread tells the thread that runs the service.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

#include "orvex/detail/event_fd.h"

namespace orvex::detail {

// Identifies one attempt to initialise. Each callback knows the epoch in which its offer was made
// ready, so that a late callback of an earlier epoch is recognised.
using Epoch = uint32_t;
inline constexpr Epoch kNoEpoch = 0;

// The bits of an epoch that fit beside the number of an offer into a pointer of 32 bits.
inline constexpr unsigned kEpochBits = 24;
inline constexpr Epoch kEpochMask = (1U << kEpochBits) - 1U;

struct LinkState {
  bool is_terminated = false;   // the Manager has closed the connection
  bool is_reconnected = false;  // the library has connected again
  bool is_over = false;         // the receive thread has ended
};

// Any thread.
class LinkEvents {
 public:
  // Begins an epoch that no other service of this process has had.
  Epoch Begin() {
    static std::atomic<Epoch> last{kNoEpoch};
    const std::lock_guard<std::mutex> lock(mutex_);
    do {
      epoch_ = ++last & kEpochMask;
    } while (epoch_ == kNoEpoch);
    state_ = {};
    return epoch_;
  }

  // From now on every callback is late.
  void End() {
    const std::lock_guard<std::mutex> lock(mutex_);
    epoch_ = kNoEpoch;
  }

  bool IsCurrent(Epoch epoch) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return epoch_ == epoch;
  }

  LinkState state() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return state_;
  }

  // Sets a member of the state, unless the epoch has ended.
  void Set(Epoch epoch, bool LinkState::*member) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (epoch_ == epoch) {
      state_.*member = true;
      changed_.Set();
    }
  }

  void CountReceiveThread(int change) noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    receive_threads_ += change;
    changed_.Set();
  }

  // Whether a receive thread that has called back exists.
  bool HasReceiveThread() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return receive_threads_ != 0;
  }

  // Set after each change. Cleared by the thread that runs the service.
  const EventFd& changed() const noexcept { return changed_; }

 private:
  EventFd changed_;
  mutable std::mutex mutex_;
  Epoch epoch_ = kNoEpoch;
  LinkState state_;
  int receive_threads_ = 0;
};

// An object of this type exists on each receive thread from its first callback on. The thread
// destroys it when it ends. The library tells nobody of a reset, but its receive thread ends then.
class ReceiveThreadMark {
 public:
  ~ReceiveThreadMark() { Report(); }
  ReceiveThreadMark() = default;
  ReceiveThreadMark(const ReceiveThreadMark&) = delete;
  ReceiveThreadMark& operator=(const ReceiveThreadMark&) = delete;

  // Marks the calling thread as the receive thread of the epoch.
  static void MarkThisThread(const std::shared_ptr<LinkEvents>& link, Epoch epoch) {
    static thread_local ReceiveThreadMark mark;
    if (mark.epoch_ == epoch) {
      return;
    }
    mark.Report();
    link->CountReceiveThread(1);
    mark.link_ = link;
    mark.epoch_ = epoch;
  }

 private:
  void Report() {
    if (link_) {
      link_->Set(epoch_, &LinkState::is_over);
      link_->CountReceiveThread(-1);
    }
  }

  std::shared_ptr<LinkEvents> link_;
  Epoch epoch_ = kNoEpoch;
};

}  // namespace orvex::detail
