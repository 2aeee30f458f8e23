// Decodes the arguments of the benchmark's tasks with separate code for each shape. A service that
// expects no other arguments could do the same. The code checks type and range of the values.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Scalars {
  uint8_t u8;
  uint16_t u16;
  uint32_t u32;
  uint64_t u64;
  int8_t i8;
  int16_t i16;
  int32_t i32;
  double real;
  std::string text;
  bool flag;
};

struct HandArguments {
  std::vector<Scalars> scalars;  // one element or none
  std::vector<int32_t> members;
  std::vector<uint32_t> unsigneds;
  std::vector<int32_t> integers;
  std::string text;
};

// Throws std::runtime_error when the arguments do not have one of the benchmark's shapes.
HandArguments DecodeByHand(const Json::Value& func);
int CountDecoded(const HandArguments& args);

}  // namespace bench
