// A queue with an upper limit for the number of its entries, and one for the size of their texts.

#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <utility>

namespace orvd {

inline std::size_t SizeOf(const std::string& text) {
  return text.size();
}

// Of an entry with a text.
template <typename Entry>
std::size_t SizeOf(const Entry& entry) {
  return entry.text.size();
}

template <typename Entry>
class BoundedQueue {
 public:
  BoundedQueue(std::size_t most_entries, std::size_t most_bytes)
      : most_entries_(most_entries), most_bytes_(most_bytes) {}

  bool Fits(const Entry& entry) const {
    return entries_.size() < most_entries_ && SizeOf(entry) <= most_bytes_ - bytes_;
  }
  void Push(Entry entry) {
    bytes_ += SizeOf(entry);
    entries_.push_back(std::move(entry));
  }
  // Drops the oldest entries for it. Drops the new entry if an empty queue cannot hold it.
  void PushNewest(Entry entry) {
    while (!entries_.empty() && !Fits(entry)) {
      Pop();
    }
    if (Fits(entry)) {
      Push(std::move(entry));
    }
  }
  Entry Pop() {
    Entry first = std::move(entries_.front());
    entries_.pop_front();
    bytes_ -= SizeOf(first);
    return first;
  }
  const std::deque<Entry>& entries() const { return entries_; }

 private:
  std::size_t most_entries_;
  std::size_t most_bytes_;
  std::deque<Entry> entries_;
  std::size_t bytes_ = 0;
};

}  // namespace orvd
