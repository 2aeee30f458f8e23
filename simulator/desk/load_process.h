// What /proc tells about the process of a service.

#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace orvd {

struct ProcessState {
  long memory = 0;  // resident, kB
  long threads = 0;
  long descriptors = 0;
  double cpu = 0;  // seconds, of all threads, ended ones too
};

// Returns nothing if the process has ended or cannot be read.
std::optional<ProcessState> ReadProcess(int pid);
// The processor time of this process in seconds.
double OwnCpu();

struct MemoryGrowth {
  long kilobytes = 0;
  double percent = 0;
};

// The memory of a process over time, in a fixed number of samples.
class MemoryRecord {
 public:
  void Add(long memory);
  void Clear() { samples_.clear(); }
  // The growth from the second quarter to the last one, as medians of each: under load the memory
  // varies within seconds. Nothing if there are too few samples.
  std::optional<MemoryGrowth> Growth() const;

 private:
  std::vector<long> samples_;
  std::size_t every_ = 1;  // keeps one of so many samples
  std::size_t skipped_ = 0;
};

}  // namespace orvd
