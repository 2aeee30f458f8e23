// Compares what a scenario expects with what has come, and shows the first difference.

#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace orvd {

struct Difference {
  std::string path;      // of the member, for example func.args[2].value
  std::string expected;  // the values as JSON
  std::string received;  // "nothing" if the member is missing
};

// Compares the members of `expected` with those of `received`. Further members of `received` do not
// count. Lists must have the same size. Returns the first difference.
std::optional<Difference> FindDifference(const Json::Value& expected, const Json::Value& received);

// Each returns an empty text if there is no difference, else several lines for a person.
std::string CompareMembers(const Json::Value& expected, const std::string& received);
std::string CompareTexts(const std::string& expected, const std::string& received);

}  // namespace orvd
