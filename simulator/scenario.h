// A scenario: what the Manager does and expects, one step a line.

#pragma once

#include <json/value.h>

#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvd {

struct Step {
  int line;          // in the file, for messages
  std::string verb;  // a word of kScenarioHelp
  std::string kind;  // the verb's first word, where it has one
  std::string rest;  // the other words as they stand
  Json::Value json;  // the rest as an object, for the verbs that take one
};

class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws ScenarioError, with file and line in its text, for what is no step; and when there is
// none.
std::vector<Step> ReadScenario(std::istream& in, const std::string& name);

// The number that the whole of `text` is.
std::optional<int> ReadInteger(const std::string& text);

// The number of a signal that a scenario may name.
std::optional<int> SignalNumber(const std::string& name);

extern const char* const kScenarioHelp;

}  // namespace orvd
