// Reads the file of a scenario: steps that the Manager does or expects, one step in a line.

#pragma once

#include <json/value.h>

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "command_line.h"

namespace orvd {

struct Step {
  int line;          // line number in the file, for error messages
  std::string verb;  // the first word; kScenarioHelp lists the verbs
  std::string kind;  // the second word, if the verb takes one
  std::string rest;  // the other words, unchanged
  Json::Value json;  // `rest` as an object, if the verb takes one
};

class ScenarioError : public CannotRun {
 public:
  using CannotRun::CannotRun;
};

// Throws ScenarioError for a line that is not a step, with file and line in its text. Throws it too
// if there is no step.
std::vector<Step> ReadScenario(std::istream& in, const std::string& name);

// Reads the bytes of "raw": hexadecimal digits in pairs, or a text in quotation marks. Returns
// nothing if `text` is neither.
std::optional<std::string> RawBytes(const std::string& text);

// Returns the number of a signal, or nothing for a name that a scenario must not use.
std::optional<int> SignalNumber(const std::string& name);

extern const char* const kScenarioHelp;

}  // namespace orvd
