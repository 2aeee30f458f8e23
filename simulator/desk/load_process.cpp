#include "load_process.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace orvd {
namespace {

constexpr std::size_t kMostSamples = 2048;
constexpr std::size_t kLeastSamples = 100;  // 5 seconds of load

// Returns -1 if the folder cannot be read.
long CountEntries(const std::string& folder) {
  DIR* directory = opendir(folder.c_str());
  if (directory == nullptr) {
    return -1;
  }
  long count = -2;  // "." and ".."
  while (readdir(directory) != nullptr) {
    ++count;
  }
  closedir(directory);
  return count;
}

// The fields of /proc/PID/stat behind the name, which may have spaces and parentheses.
std::vector<std::string> StatFields(const std::string& folder) {
  std::ifstream file(folder + "/stat");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const std::size_t name_end = text.rfind(')');
  std::istringstream rest(name_end == std::string::npos ? "" : text.substr(name_end + 1));
  return {std::istream_iterator<std::string>(rest), {}};
}

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

long Median(std::vector<long>::const_iterator begin, std::vector<long>::const_iterator end) {
  std::vector<long> sorted(begin, end);
  std::sort(sorted.begin(), sorted.end());
  return sorted[sorted.size() / 2];
}

}  // namespace

std::optional<ProcessState> ReadProcess(int pid) {
  constexpr std::size_t kUserTime = 11;
  constexpr std::size_t kSystemTime = 12;
  constexpr std::size_t kThreads = 17;
  constexpr std::size_t kResident = 21;
  const std::string folder = "/proc/" + std::to_string(pid);
  const std::vector<std::string> fields = StatFields(folder);
  if (fields.size() <= kResident) {
    return std::nullopt;
  }
  ProcessState state;
  state.memory = std::stol(fields[kResident]) * (sysconf(_SC_PAGESIZE) / 1024);
  state.threads = std::stol(fields[kThreads]);
  state.descriptors = CountEntries(folder + "/fd");
  state.cpu = static_cast<double>(std::stol(fields[kUserTime]) + std::stol(fields[kSystemTime])) /
              static_cast<double>(sysconf(_SC_CLK_TCK));
  return state;
}

double OwnCpu() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

void MemoryRecord::Add(long memory) {
  if (++skipped_ < every_) {
    return;
  }
  skipped_ = 0;
  samples_.push_back(memory);
  if (samples_.size() == kMostSamples) {
    for (std::size_t i = 0; i < kMostSamples / 2; ++i) {
      samples_[i] = samples_[2 * i];
    }
    samples_.resize(kMostSamples / 2);
    every_ *= 2;
  }
}

std::optional<MemoryGrowth> MemoryRecord::Growth() const {
  if (samples_.size() < kLeastSamples) {
    return std::nullopt;
  }
  const auto quarter = static_cast<std::ptrdiff_t>(samples_.size() / 4);
  const long warm = Median(samples_.begin() + quarter, samples_.begin() + 2 * quarter);
  const long end = Median(samples_.end() - quarter, samples_.end());
  const long growth = end - warm;
  return MemoryGrowth{
      growth, warm == 0 ? 0 : 100.0 * static_cast<double>(growth) / static_cast<double>(warm)};
}

}  // namespace orvd
