#include "load_ledger.h"

#include <limits>

namespace orvd {
namespace {

constexpr std::size_t kRemembered = 16;  // for each task that can be outstanding
constexpr std::size_t kLeastRemembered = 4096;

// At least twice as many entries as outstanding tasks: a free one is found after few steps.
std::size_t EntryMask(std::size_t limit) {
  std::size_t size = 1;
  while (size < 2 * limit) {
    size *= 2;
  }
  return size - 1;
}

}  // namespace

Ledger::Ledger(std::size_t limit, std::int32_t last_id)
    : limit_(limit), mask_(EntryMask(limit)), entries_(mask_ + 1), last_id_(last_id) {}

std::int32_t Ledger::TakeId() {
  last_id_ = last_id_ == std::numeric_limits<std::int32_t>::max() ? 1 : last_id_ + 1;
  return last_id_;
}

SentTask& Ledger::Open() {
  std::int32_t id = TakeId();
  while (At(id).id != 0) {
    id = TakeId();
  }
  ++open_;
  At(id).id = id;
  return At(id);
}

void Ledger::Withdraw(SentTask& task) {
  task.id = 0;
  --open_;
}

AnswerKind Ledger::Close(std::int32_t id, SentTask& task) {
  if (id > 0 && At(id).id == id) {
    task = At(id);
    Withdraw(At(id));
    return AnswerKind::kFirst;
  }
  return given_up_.erase(id) == 1 ? AnswerKind::kLate : AnswerKind::kDuplicate;
}

void Ledger::Remember(std::int32_t id) {
  if (given_up_order_.size() == kLeastRemembered + kRemembered * limit_) {
    given_up_.erase(given_up_order_.front());
    given_up_order_.pop_front();
  }
  given_up_.insert(id);
  given_up_order_.push_back(id);
}

std::size_t Ledger::GiveUp(Clock::time_point time) {
  const std::size_t before = open_;
  for (SentTask& entry : entries_) {
    if (entry.id != 0 && entry.at < time) {
      Remember(entry.id);
      Withdraw(entry);
    }
  }
  return before - open_;
}

}  // namespace orvd
