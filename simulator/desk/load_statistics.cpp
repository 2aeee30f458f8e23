#include "load_statistics.h"

#include <algorithm>
#include <cmath>

namespace orvd {
namespace {

unsigned BitLength(std::uint64_t number) {
  unsigned length = 0;
  for (; number != 0; number >>= 1U) {
    ++length;
  }
  return length;
}

}  // namespace

void Latencies::Add(std::chrono::nanoseconds latency) {
  const auto value = static_cast<std::uint64_t>(std::max<std::int64_t>(latency.count(), 0));
  const unsigned length = BitLength(value);
  const unsigned shift = length > kBits + 1 ? length - kBits - 1 : 0;
  ++counts_[(static_cast<std::size_t>(shift) << kBits) + (value >> shift)];
  ++total_;
  largest_ = std::max(largest_, latency);
}

std::chrono::nanoseconds Latencies::At(double share) const {
  const auto rank = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(total_)));
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < kClasses && rank > 0; ++i) {
    seen += counts_[i];
    if (seen >= rank) {
      const std::size_t shift = i < (2U << kBits) ? 0 : (i >> kBits) - 1;
      const std::uint64_t upper = ((i - (shift << kBits) + 1) << shift) - 1;
      return std::min(largest_, std::chrono::nanoseconds(upper));
    }
  }
  return largest_;
}

}  // namespace orvd
