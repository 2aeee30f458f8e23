// Who owes an answer: everything that was asked of the service, until it is answered.

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
  // So few that the answers fit into the service's send buffer: neither side ever waits for the
  // other to read while that one waits likewise.
  static constexpr std::size_t kRoom = 64;
  static constexpr std::chrono::seconds kLimit{10};

  struct Counts {
    uint64_t answers = 0;
    uint64_t lost = 0;     // open when the link was lost
    uint64_t late = 0;     // of these, answered on a later connection
    uint64_t missing = 0;  // without such an excuse
    uint64_t duplicates = 0;
    uint64_t wrong = 0;
  };

  // Waits for room. False when the link is given up, or nothing is answered any more.
  bool Open(int64_t key, const std::string& answer) {
    std::unique_lock<std::mutex> lock(mutex_);
    const bool room =
        changed_.wait_for(lock, kLimit, [this] { return given_up_ || open_.size() < kRoom; });
    if (!room || given_up_) {
      return false;
    }
    open_.emplace(key, answer);
    return true;
  }

  // What is not open any more, or never was, is answered once too often.
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

  bool WaitAnswered(int64_t key) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kLimit, [&] { return given_up_ || open_.count(key) == 0; });
    return !given_up_ && open_.count(key) == 0;
  }

  // All is answered; what is not within the limit is missing.
  void Drain() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, kLimit, [this] { return open_.empty(); });
    counts_.missing += open_.size();
    open_.clear();
  }

  void GiveUp() {
    const std::lock_guard<std::mutex> lock(mutex_);
    given_up_ = true;
    changed_.notify_all();
  }

  // The link is gone: what is open may be answered on the next one, or not at all.
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
