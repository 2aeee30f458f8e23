// Latencies and counts of `orvd-sim load`, in a fixed amount of memory.

#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace orvd {

// Durations in classes that are at most 3 % wide.
class Latencies {
 public:
  void Add(std::chrono::nanoseconds latency);
  // The upper end of the class below which `share` (0 to 1) of the durations are. 0 without any.
  std::chrono::nanoseconds At(double share) const;
  std::chrono::nanoseconds largest() const { return largest_; }

 private:
  static constexpr unsigned kBits = 5;  // classes for each power of two: 1 << kBits
  static constexpr std::size_t kClasses = (64 - kBits + 1) << kBits;

  std::array<std::uint64_t, kClasses> counts_{};
  std::uint64_t total_ = 0;
  std::chrono::nanoseconds largest_{0};
};

struct LoadCounts {
  std::uint64_t sent = 0;
  std::uint64_t answered = 0;   // in time, on the connection of the task
  std::uint64_t failed = 0;     // of these: "status" is not 0
  std::uint64_t rejected = 0;   // sent to a pair that had ended; no answer is right
  std::uint64_t missing = 0;    // not answered within the limit
  std::uint64_t duplicate = 0;  // answers to tasks that were answered, rejected or never sent
  std::uint64_t late = 0;       // answers after the limit, or on a later connection
  std::uint64_t lost = 0;       // outstanding when their connection ended
  std::uint64_t wrong = 0;      // answers that do not fit their task
  std::uint64_t sessions = 0;   // started pairs
  std::uint64_t refused = 0;    // pairs that the service did not start
  std::uint64_t silent = 0;     // session messages without an answer
  std::uint64_t queries = 0;
  std::uint64_t notifications = 0;
  std::uint64_t others = 0;         // messages of the service that have no meaning here
  std::uint64_t left = 0;           // connections that the service ended by itself
  std::map<std::string, int> ends;  // connections that were ended here, by the way
};

}  // namespace orvd
