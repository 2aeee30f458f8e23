#include "scenario.h"

#include <json/reader.h>

#include <array>
#include <istream>
#include <memory>
#include <string_view>

namespace orvd {
namespace {

enum class Takes { kNothing, kText, kJson, kKind, kKindAndJson };

struct Verb {
  std::string_view name;
  Takes takes;
};

constexpr std::array kVerbs{Verb{"say", Takes::kText},
                            Verb{"answer", Takes::kKindAndJson},
                            Verb{"send", Takes::kJson},
                            Verb{"expect", Takes::kKindAndJson},
                            Verb{"task", Takes::kJson},
                            Verb{"result", Takes::kJson},
                            Verb{"rejected", Takes::kKind},
                            Verb{"signal", Takes::kKind},
                            Verb{"end-of-file", Takes::kNothing},
                            Verb{"die", Takes::kNothing}};

[[noreturn]] void Fail(const std::string& name, int line, const std::string& why) {
  throw ScenarioError(name + ":" + std::to_string(line) + ": " + why);
}

std::string TakeWord(std::string& text) {
  const std::size_t end = std::min(text.find(' '), text.size());
  std::string word = text.substr(0, end);
  const std::size_t next = text.find_first_not_of(' ', end);
  text = next == std::string::npos ? "" : text.substr(next);
  return word;
}

Json::Value ReadObject(const std::string& text, const std::string& name, int line) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value value;
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    Fail(name, line, "not JSON: " + errors);
  }
  if (!value.isObject()) {
    Fail(name, line, "a JSON object is meant");
  }
  return value;
}

const Verb& FindVerb(const std::string& word, const std::string& name, int line) {
  for (const Verb& verb : kVerbs) {
    if (verb.name == word) {
      return verb;
    }
  }
  Fail(name, line, "unknown step '" + word + "'");
}

Step ReadStep(std::string text, const std::string& name, int line) {
  Step step{line, TakeWord(text), "", "", Json::Value(Json::objectValue)};
  const Takes takes = FindVerb(step.verb, name, line).takes;
  if (takes == Takes::kKind || takes == Takes::kKindAndJson) {
    step.kind = TakeWord(text);
    if (step.kind.empty()) {
      Fail(name, line, step.verb + " needs a word behind it");
    }
  }
  step.rest = text;
  const bool takes_json = takes == Takes::kJson || (takes == Takes::kKindAndJson && !text.empty());
  if (takes_json) {
    step.json = ReadObject(text, name, line);
  } else if (takes != Takes::kText && !text.empty()) {
    Fail(name, line, "'" + text + "' is too much");
  }
  return step;
}

}  // namespace

const char* const kScenarioHelp =
    R"(A scenario is a text file, one step a line. A line that begins with a blank continues the one before;
"#" begins a comment line. JSON in an expectation names the members that matter; others may be there.

  answer INIT {"service_id":7}      answer every such request with these members; "opcode" and "QueryId" are
  answer AUTH {"result":0}            taken over from the request
  answer REDY {"result":0}
  answer KIND                       answer no such request any more
  expect KIND [{...}]               wait for the next message of this kind, or for this plain text (EXIT)
  send {...}                        send a message
  task {"transac_id":1,...}         send "exec_task"
  result {"transac_id":1,...}       wait for the answer of this task, in whatever order answers come
  rejected TRANSAC_ID               this task is never answered; checked when the scenario is over
  signal TERM                       send a signal (TERM, INT, HUP, KILL) to the service process
  end-of-file                       wait until the service has closed the connection
  die                               remove the socket and end this process by SIGKILL; ends the scenario
  say TEXT                          a heading in the printed conversation
)";

std::vector<Step> ReadScenario(std::istream& in, const std::string& name) {
  std::vector<std::pair<int, std::string>> texts;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line[begin] == '#') {
      continue;
    }
    if (begin == 0) {
      texts.emplace_back(number, line);
    } else if (texts.empty()) {
      Fail(name, number, "continues nothing");
    } else {
      texts.back().second += " " + line.substr(begin);
    }
  }
  std::vector<Step> steps;
  steps.reserve(texts.size());
  for (auto& [number, text] : texts) {
    steps.push_back(ReadStep(std::move(text), name, number));
  }
  return steps;
}

}  // namespace orvd
