#include "scenario_file.h"

#include <json/reader.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <istream>
#include <map>
#include <memory>
#include <string_view>

#include "byte_text.h"
#include "read_number.h"

namespace orvd {
namespace {

enum class Takes { kNothing, kText, kJson, kKind, kKindAndText, kKindAndJson };

constexpr int kLongestPause = 600000;  // milliseconds
constexpr int kMostAnswers = 1000;

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
  return ReadWhole<int>(step.kind).has_value();
}

bool NamesSignal(const Step& step) {
  return SignalNumber(step.kind).has_value();
}

bool IsNumber(const std::string& text, int least, int most) {
  const int number = ReadWhole<int>(text).value_or(least - 1);
  return number >= least && number <= most;
}

bool NumbersPause(const Step& step) {
  return IsNumber(step.kind, 1, kLongestPause);
}

bool NumbersDelay(const Step& step) {
  return IsNumber(step.rest, 0, kLongestPause);
}

bool NumbersAnswers(const Step& step) {
  return IsNumber(step.rest, 1, kMostAnswers);
}

bool NamesEnd(const Step& step) {
  return step.kind == "close" || step.kind == "half" || step.kind == "reset";
}

bool HasBytes(const Step& step) {
  return RawBytes(step.rest).has_value();
}

struct Verb {
  std::string_view name;
  Takes takes;
  bool (*accepts)(const Step& step);
  const char* needs;  // for the error message when the step is not accepted
};

constexpr std::array kVerbs{
    Verb{"say", Takes::kText, Anything, ""},
    Verb{"answer", Takes::kKindAndJson, Anything, ""},
    Verb{"delay", Takes::kKindAndText, NumbersDelay, "a kind and milliseconds, up to 600000"},
    Verb{"repeat", Takes::kKindAndText, NumbersAnswers, "a kind and a number from 1 to 1000"},
    Verb{"send", Takes::kJson, Anything, ""},
    Verb{"raw", Takes::kText, HasBytes, "pairs of hexadecimal digits, or text in quotation marks"},
    Verb{"expect", Takes::kKindAndJson, Anything, ""},
    Verb{"exactly", Takes::kText, HasText, "the text of a message"},
    Verb{"reply", Takes::kKindAndJson, Anything, ""},
    Verb{"quiet", Takes::kKind, NumbersPause, "milliseconds from 1 to 600000"},
    Verb{"task", Takes::kJson, NamesTask, "a number as transac_id"},
    Verb{"result", Takes::kJson, NamesTask, "a number as transac_id"},
    Verb{"rejected", Takes::kKind, NumbersTask, "the number of a task"},
    Verb{"signal", Takes::kKind, NamesSignal, "TERM, INT, HUP or KILL"},
    Verb{"connection", Takes::kNothing, Anything, ""},
    Verb{"end-of-file", Takes::kNothing, Anything, ""},
    Verb{"hang-up", Takes::kKind, NamesEnd, "close, half or reset"},
    Verb{"silence", Takes::kNothing, Anything, ""},
    Verb{"speak", Takes::kNothing, Anything, ""},
    Verb{"refuse", Takes::kNothing, Anything, ""},
    Verb{"accept", Takes::kNothing, Anything, ""},
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
  const bool takes_text = takes == Takes::kText || takes == Takes::kKindAndText;
  if (takes == Takes::kKind || takes == Takes::kKindAndText || takes == Takes::kKindAndJson) {
    step.kind = TakeWord(text);
    if (step.kind.empty()) {
      Fail(name, line, step.verb + " needs a word behind it");
    }
  }
  step.rest = text;
  const bool takes_json = takes == Takes::kJson || (takes == Takes::kKindAndJson && !text.empty());
  if (takes_json) {
    step.json = ReadObject(text, name, line);
  } else if (!takes_text && !text.empty()) {
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

std::optional<std::string> RawBytes(const std::string& text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    return text.substr(1, text.size() - 2);
  }
  std::string digits = text;
  digits.erase(std::remove(digits.begin(), digits.end(), ' '), digits.end());
  std::transform(digits.begin(), digits.end(), digits.begin(),
                 [](unsigned char digit) { return static_cast<char>(std::tolower(digit)); });
  return digits.empty() ? std::nullopt : BytesOf(digits);
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
What is waited for must come within the time of --patience, the service itself included.

Answers:
  answer INIT {"service_id":7}      answer every such request with these members; "opcode" and "QueryId" are
  answer AUTH {"result":0}            taken over from the request
  answer REDY {"result":0}
  answer KIND                       answer no such request any more
  delay KIND MS                     send answers of this kind so much later; other messages go on meanwhile
  repeat KIND NUMBER                send each answer of this kind so many times
Messages:
  expect KIND [{...}]               wait for the next message of this kind, or for this plain text (EXIT)
  exactly TEXT                      wait for the next message, of any kind, and compare all of it
  reply KIND {...}                  answer the oldest request of this kind that an expect has found, as "answer" does
  quiet MS                          no message may be unread, and none may come for so long
  send {...}                        send a message; also an answer that nobody has asked for
  raw 7b00ff                        send these bytes as one packet; raw "text" sends a text, raw "" an empty packet
Messages overtake each other. A message that expect or result has passed over, and that no "answer" has
answered, stays until its connection ends: a later expect or exactly takes it if it fits.
Tasks:
  task {"transac_id":1,...}         send "exec_task"
  result {"transac_id":1,...}       wait for the answer of this task, in whatever order answers come
  rejected TRANSAC_ID               this task is never answered; needs an end-of-file or die later on
The connection:
  connection                        wait until the service has connected, or connected again after an end
  end-of-file                       wait until the service has closed the connection
  hang-up close                     read what the service has sent, then close: the service reads the end
  hang-up half                      close only the sending side: the service reads the end and can still send
  hang-up reset                     close while a message of the service is unread: the service reads an error
  silence                           read and answer nothing until speak, or until the service connects again
  speak                             go on; messages that have come meanwhile are answered now
  refuse                            remove the socket: the service cannot connect
  accept                            create the socket again
  signal TERM                       send a signal (TERM, INT, HUP, KILL) to the process at the other end of the
                                      socket; behind a monitor, that is the monitor
  die                               remove the socket and end this process by SIGKILL; ends the scenario
Printed conversation:
  say TEXT                          a heading
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
  if (in.bad()) {
    throw ScenarioError(name + ": cannot be read");
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
