// The tasks that `orvd-sim load` has sent, each until its answer. The record has a fixed size.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_set>
#include <vector>

namespace orvd {

struct SentTask {
  std::int32_t id = 0;  // "transac_id"; 0: the entry is free
  std::uint32_t session = 0;
  std::uint32_t ssid = 0;
  std::uint64_t sum = 0;  // the checksum of its arguments
  std::chrono::steady_clock::time_point at;
};

enum class AnswerKind {
  kFirst,      // of a task that was outstanding
  kLate,       // of a task that was given up: its connection ended, or its time was over
  kDuplicate,  // of a task that was answered, or was never sent
};

class Ledger {
 public:
  using Clock = std::chrono::steady_clock;

  // `limit` is the largest number of outstanding tasks. The first number is the one behind
  // `last_id`.
  Ledger(std::size_t limit, std::int32_t last_id);

  bool full() const { return open_ == limit_; }
  std::size_t open() const { return open_; }

  // The number of the next task. Not for a task that Open() records.
  std::int32_t TakeId();
  // Records a task. The caller sets what is not the id. Not when full().
  SentTask& Open();
  // Forgets the task of the last Open(), which was not sent.
  void Withdraw(SentTask& task);
  // Closes the task of an answer. For kFirst, `task` receives what was recorded.
  AnswerKind Close(std::int32_t id, SentTask& task);
  // Gives up all tasks, or those that were sent before `time`. Returns their number.
  std::size_t GiveUp(Clock::time_point time = Clock::time_point::max());

 private:
  SentTask& At(std::int32_t id) { return entries_[static_cast<std::size_t>(id) & mask_]; }
  void Remember(std::int32_t id);

  const std::size_t limit_;
  const std::size_t mask_;
  std::vector<SentTask> entries_;
  std::size_t open_ = 0;
  std::int32_t last_id_;
  // Tasks that were given up. The oldest are forgotten when there are many.
  std::unordered_set<std::int32_t> given_up_;
  std::deque<std::int32_t> given_up_order_;
};

}  // namespace orvd
