// What the programs of the benchmark share.

#pragma once

#include <cstdint>
#include <istream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "orvex_simulator/messages.h"
#include "orvex_simulator/typed_arguments.h"

namespace bench {

inline constexpr uint32_t kOpcode = 0xa001;
inline constexpr const char* kToken = "a token of some length";
inline constexpr int kMembers = 50;  // of the struct whose values are summed

inline std::vector<uint32_t> Subsystems(uint32_t count) {
  std::vector<uint32_t> ssids(count);
  std::iota(ssids.begin(), ssids.end(), 1U);
  return ssids;
}

inline std::string Definition() {
  return orvd::Definition(kOpcode, Subsystems(64));
}

// `line` has the function and its typed arguments.
inline std::string TaskMessage(std::istream& line, int transac_id) {
  std::string function;
  line >> function;
  const std::vector<std::string> words(std::istream_iterator<std::string>{line}, {});
  std::string text = orvd::TaskMessage(1, kOpcode, 1, transac_id, function, orvd::Arguments(words));
  // A vector's type comes before its elements. The other order changes the time of large vectors.
  const std::size_t type = text.find(R"(,"vec_type")");
  if (type != std::string::npos) {
    const std::string member = text.substr(type, text.find('}', type) - type);
    text.erase(type, member.size()).insert(text.find(R"(,"value")"), member);
  }
  return text;
}

template <typename... T>
int64_t Sum(T... values) {
  return (static_cast<int64_t>(values) + ...);
}

// A function name with a blank is a command of the driver: "ask ITEMS COUNT" asks COUNT permission
// queries of ITEMS items, one after another.
inline bool IsCommand(const std::string& function) {
  return function.find(' ') != std::string::npos;
}

// `ask` returns the number of results. Returns the number of successful queries.
template <typename Ask>
uint32_t RunCommand(const std::string& command, Ask ask) {
  std::string what;
  uint32_t items = 0;
  uint32_t count = 0;
  std::istringstream(command) >> what >> items >> count;
  std::vector<std::string> permissions;
  for (uint32_t i = 0; i < items; ++i) {
    permissions.push_back("vendor.permission.number_" + std::to_string(i));
  }
  uint32_t good = 0;
  for (uint32_t i = 0; i < count; ++i) {
    good += ask(permissions) == items ? 1U : 0U;
  }
  return good;
}

}  // namespace bench
