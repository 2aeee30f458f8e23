#include "scenario.h"

#include <json/reader.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <istream>
#include <map>
#include <memory>
#include <string_view>

namespace orvd {
namespace {

enum class Takes { kNothing, kText, kJson, kKind, kKindAndJson };

bool Anything(const Step& /*step*/) {
  return true;
}

bool NamesTask(const Step& step) {
  return step.json["transac_id"].isInt();
}

bool HasText(const Step& step) {
  return !step.rest.empty();
}

bool NumbersTask(const Step& step) {
  return ReadInteger(step.kind).has_value();
}

bool NamesSignal(const Step& step) {
  return SignalNumber(step.kind).has_value();
}

struct Verb {
  std::string_view name;
  Takes takes;
  bool (*accepts)(const Step& step);
  const char* needs;  // for the error message when the step is not accepted
};

constexpr std::array kVerbs{Verb{"say", Takes::kText, Anything, ""},
                            Verb{"answer", Takes::kKindAndJson, Anything, ""},
                            Verb{"send", Takes::kJson, Anything, ""},
                            Verb{"expect", Takes::kKindAndJson, Anything, ""},
                            Verb{"exactly", Takes::kText, HasText, "the text of a message"},
                            Verb{"task", Takes::kJson, NamesTask, "a number as transac_id"},
                            Verb{"result", Takes::kJson, NamesTask, "a number as transac_id"},
                            Verb{"rejected", Takes::kKind, NumbersTask, "the number of a task"},
                            Verb{"signal", Takes::kKind, NamesSignal, "TERM, INT, HUP or KILL"},
                            Verb{"end-of-file", Takes::kNothing, Anything, ""},
                            Verb{"die", Takes::kNothing, Anything, ""}};

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
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
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
  const Verb& verb = FindVerb(step.verb, name, line);
  const Takes takes = verb.takes;
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
  if (!verb.accepts(step)) {
    Fail(name, line, step.verb + " needs " + verb.needs);
  }
  return step;
}

// A service can answer as long as its connection exists. So a rejection is certain only when the
// connection has ended. After "die" a wrong answer goes to the next Manager, whose scenario does
// not expect it.
void CheckRejectionsCanBeSeen(const std::vector<Step>& steps, const std::string& name) {
  const auto last = std::find_if(steps.rbegin(), steps.rend(),
                                 [](const Step& step) { return step.verb == "rejected"; });
  const bool seen = std::any_of(steps.rbegin(), last, [](const Step& step) {
    return step.verb == "end-of-file" || step.verb == "die";
  });
  if (last != steps.rend() && !seen) {
    Fail(name, last->line, "rejected needs an end-of-file or die later on");
  }
}

}  // namespace

std::optional<int> ReadInteger(const std::string& text) {
  int number = 0;
  const char* end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stopped == end ? std::optional<int>(number) : std::nullopt;
}

std::optional<int> SignalNumber(const std::string& name) {
  const std::map<std::string, int> signals{
      {"TERM", SIGTERM}, {"INT", SIGINT}, {"HUP", SIGHUP}, {"KILL", SIGKILL}};
  const auto found = signals.find(name);
  return found == signals.end() ? std::nullopt : std::optional<int>(found->second);
}

const char* const kScenarioHelp =
    R"(A scenario is a text file, one step a line. A line that begins with a blank continues the one before;
"#" begins a comment line. JSON in an expectation names the members that matter; others may be there.
What is waited for must come within 10 seconds, the service itself included.

  answer INIT {"service_id":7}      answer every such request with these members; "opcode" and "QueryId" are
  answer AUTH {"result":0}            taken over from the request
  answer REDY {"result":0}
  answer KIND                       answer no such request any more
  expect KIND [{...}]               wait for the next message of this kind, or for this plain text (EXIT)
  exactly TEXT                      wait for the next message, of any kind, and compare all of it
  send {...}                        send a message
  task {"transac_id":1,...}         send "exec_task"
  result {"transac_id":1,...}       wait for the answer of this task, in whatever order answers come
  rejected TRANSAC_ID               this task is never answered; needs an end-of-file or die later on
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
  if (steps.empty()) {
    throw ScenarioError(name + ": no steps in it");
  }
  CheckRejectionsCanBeSeen(steps, name);
  return steps;
}

}  // namespace orvd
