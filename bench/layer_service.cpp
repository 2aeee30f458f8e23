// The measured service that uses the C++ layer. It does the same as raw_service.cpp.

#include <orvex/service.h>
#include <sys/prctl.h>

#include <csignal>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "wire.h"

namespace {

orvex::Object SumScalars(uint8_t u8, uint16_t u16, uint32_t u32, uint64_t u64, int8_t i8,
                         int16_t i16, int32_t i32, double real, const std::string& text,
                         bool flag) {
  return {{"sum", bench::Sum(u8, u16, u32, u64, i8, i16, i32, real, text.size(), flag)},
          {"done", true}};
}

orvex::Object SumMembers(const orvex::Struct& members) {
  int64_t sum = 0;
  for (int key = 0; key < bench::kMembers; ++key) {
    sum += members.Get<int32_t>(key);
  }
  return {{"sum", sum}, {"done", true}};
}

}  // namespace

int main() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::vector<uint32_t> subsystems(bench::kSubsystems);
  std::iota(subsystems.begin(), subsystems.end(), 1U);
  orvex::Service service;
  service.Offer(bench::kOpcode, subsystems, bench::kToken)
      .On("scalars", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, SumScalars)
      .On("struct", SumMembers);
  return service.Run();
}
