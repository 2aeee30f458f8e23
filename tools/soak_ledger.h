// The ledger records every request to the service until its answer arrives.

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace soak {

class Ledger {
 public:
  // The largest number of open requests. Their answers fit into the service's send buffer. So the
  // two processes never block each other in a send.
  static constexpr std::size_t kMaxOpen = 64;
  static constexpr std::chrono::seconds kLimit{10};

  struct Counts {
    uint64_t answers = 0;
    uint64_t lost = 0;     // open when the connection was lost
    uint64_t late = 0;     // lost, but answered on a later connection
    uint64_t missing = 0;  // not answered, although the connection was not lost
    uint64_t duplicates = 0;
    uint64_t wrong = 0;
  };

  // Records a request; waits while kMaxOpen requests are open. Returns false after GiveUp, or when
  // no answer arrives within kLimit.
  bool Open(int64_t key, const std::string& answer) {
    std::unique_lock<std::mutex> lock(mutex_);
    const bool has_room =
        changed_.wait_for(lock, kLimit, [this] { return given_up_ || open_.size() < kMaxOpen; });
    if (!has_room || given_up_) {
      return false;
    }
    open_.emplace(key, answer);
    return true;
  }

  // Records an answer. An answer to a request that is neither open nor lost counts as a duplicate.
  void Answer(int64_t key, const std::string& answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool late = lost_.count(key) != 0;
    auto& from = late ? lost_ : open_;
    const auto found = from.find(key);
    if (found == from.end()) {
      ++counts_.duplicates;
      return;
    }
    ++(found->second == answer ? counts_.answers : counts_.wrong);
    counts_.late += late ? 1 : 0;
    from.erase(found);
    changed_.notify_all();
  }

  // Returns false after GiveUp, or when the request is still open after kLimit.
  bool WaitAnswered(int64_t key) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kLimit, [&] { return given_up_ || open_.count(key) == 0; });
    return !given_up_ && open_.count(key) == 0;
  }

  // Waits until no request is open. A request that is still open after kLimit counts as missing.
  void Drain() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kLimit, [this] { return open_.empty(); });
    counts_.missing += open_.size();
    open_.clear();
  }

  // Ends all waits, because the connection is about to be closed.
  void GiveUp() {
    const std::lock_guard<std::mutex> lock(mutex_);
    given_up_ = true;
    changed_.notify_all();
  }

  // The connection is closed. An open request counts as lost; its answer may arrive on the next
  // connection or never.
  void LoseOpen() {
    const std::lock_guard<std::mutex> lock(mutex_);
    counts_.lost += open_.size();
    lost_.merge(open_);
    given_up_ = false;
  }

  Counts counts() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return counts_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<int64_t, std::string> open_;
  std::map<int64_t, std::string> lost_;
  Counts counts_;
  bool given_up_ = false;
};

}  // namespace soak
