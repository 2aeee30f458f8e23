// The measured service on the C++ layer. For its functions, raw_service.cpp does the same.

#include <orvex/service.h>

#include "common.h"

namespace {

orvex::Object SumScalars(uint8_t u8, uint16_t u16, uint32_t u32, uint64_t u64, int8_t i8,
                         int16_t i16, int32_t i32, double real, const std::string& text,
                         bool flag) {
  return {{"read", bench::Sum(u8, u16, u32, u64, i8, i16, i32, real, text.size(), flag)},
          {"done", true}};
}

orvex::Object SumMembers(const orvex::Struct& members) {
  int64_t sum = 0;
  for (int key = 1; key <= bench::kMembers; ++key) {
    sum += members.Get<int32_t>(key);
  }
  return {{"read", sum}, {"done", true}};
}

}  // namespace

int main() {
  orvex::Service service;
  service.Offer(bench::kOpcode, bench::Subsystems(64), bench::kToken)
      .On("sum_scalars", SumScalars)
      .On("sum_struct", SumMembers);
  return service.Run();
}
