#include <json/writer.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "orvex_simulator/json_text.h"
#include "served.h"
#include "shell_words.h"

namespace orvd {
namespace {

constexpr const char* kAbout =
    R"(Waits for a service, agrees to its registration, opens a session on OPCODE, calls FUNCTION, prints the
answer with its latency, and ends the session. Permissions are granted unless --deny names them.

Exit code 0: answered with success. 1: answered with a failure, refused, or no answer. A task with an
argument that its type cannot hold is refused by the library and gets no answer; therefore such an
argument is refused here already (exit code 2), unless --unchecked lets it pass.

--session calls the functions that the lines of the standard input name, FUNCTION [ARGUMENT...], in one
session. Words are quoted as in a shell, # begins a comment. After a loss of the connection the next
call gets a new session. The calls end when the service does not come back within --patience.

--args FILE takes the arguments from a file: one a line, without quoting, or the JSON list "args" of the
protocol, which is not checked.

)";
constexpr const char* kExamples =
    R"(  orvd-sim call 0xa001 read_temperature
  orvd-sim call 0xa001 set_limits u8:3 i16:-400 u32:60000 'str:outer skin' --repeat 100
  orvd-sim call 0xa001 average f64[]:1.5,2,4 --json
  orvd-sim call 0xa001 configure 'struct:["str:gyroscope","u16:400","i32[]:-1,0,1"]'
  orvd-sim call 0xa001 --session < calls
)";
constexpr std::int64_t kMostCalls = 1000000;

struct CallOptions {
  ServedOptions served;
  std::optional<std::uint32_t> subsystem;
  std::string args_file;
  std::int64_t repeat = 1;
  bool session = false;
  bool json = false;
  Check check = Check::kStrict;
};

struct Invocation {
  std::string function;
  Json::Value args;
};

// --- The arguments. ---

std::vector<std::string> ReadLines(std::istream& file) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

// Names the line of a wrong argument; an empty line is none.
Json::Value ArgumentsOfLines(const std::string& name, const std::vector<std::string>& lines,
                             Check check) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].empty()) {
      continue;
    }
    texts.push_back(lines[i]);
    try {
      Argument(1, lines[i], check);
    } catch (const BadArgument& error) {
      throw CannotRun(name + ":" + std::to_string(i + 1) + ": " + error.what());
    }
  }
  try {
    return Arguments(texts, check);
  } catch (const BadArgument& error) {
    throw CannotRun(name + ": " + error.what());
  }
}

Json::Value ReadArgumentFile(const std::string& name, Check check) {
  std::ifstream file(name);
  const std::vector<std::string> lines = ReadLines(file);
  if (!file.eof()) {
    throw CannotRun(name + ": cannot be read");
  }
  const bool is_json = !lines.empty() && lines.front().rfind('[', 0) == 0;
  if (!is_json) {
    return ArgumentsOfLines(name, lines, check);
  }
  std::string text;
  for (const std::string& line : lines) {
    text += line + '\n';
  }
  const std::optional<Json::Value> list = ParseValue(text);
  if (!list || !list->isArray()) {
    throw CannotRun(name + ": expected a JSON list of arguments, got " + lines.front());
  }
  return *list;
}

Invocation InvocationOf(const std::vector<std::string>& words, Check check) {
  return {words.front(), Arguments({words.begin() + 1, words.end()}, check)};
}

// --- The output. ---

// The object as the service wrote it: other digits would be other numbers.
std::string FunctionText(const Answer& answer) {
  const auto begin = static_cast<std::size_t>(answer.func.getOffsetStart());
  const auto end = static_cast<std::size_t>(answer.func.getOffsetLimit());
  return end > begin && end <= answer.text.size() ? answer.text.substr(begin, end - begin) : "{}";
}

// For a person: with line breaks, and with 15 digits, which a decimal fraction survives.
std::string PrettyText(const Json::Value& value) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  writer["emitUTF8"] = true;
  writer["precision"] = 15;
  return Json::writeString(writer, value);
}

std::string MillisecondsText(std::chrono::microseconds time) {
  std::array<char, 32> text{};
  static_cast<void>(
      std::snprintf(text.data(), text.size(), "%.3f ms", static_cast<double>(time.count()) / 1000));
  return text.data();
}

void PrintAnswer(const std::string& function, const Answer& answer, bool json) {
  if (json) {
    std::cout << R"({"function":)" << WriteCompact(function) << R"(,"return":)"
              << answer.return_code << R"(,"status":)" << answer.status << R"(,"func":)"
              << FunctionText(answer) << R"(,"latency_us":)" << answer.latency.count() << "}"
              << std::endl;
    return;
  }
  const bool is_terminal = isatty(STDOUT_FILENO) == 1;
  std::cout << (is_terminal ? PrettyText(answer.func) : FunctionText(answer)) << '\n'
            << "return " << answer.return_code << ", status " << answer.status << ", "
            << MillisecondsText(answer.latency) << std::endl;
}

void PrintFailure(const std::string& function, const std::string& reason, bool json) {
  if (json) {
    std::cout << R"({"function":)" << WriteCompact(function) << R"(,"error":)"
              << WriteCompact(reason) << "}" << std::endl;
  }
  Complain(function + ": " + reason);
}

// --- The calls. ---

class Caller {
 public:
  Caller(Served& served, std::uint32_t opcode, const CallOptions& options)
      : served_(served), opcode_(opcode), options_(options) {
    Open();
  }

  void Call(const Invocation& invocation) {
    ++calls_;
    try {
      const Answer answer = session_->Await(Send(invocation));
      latencies_.push_back(answer.latency);
      succeeded_ += answer.ok() ? 1 : 0;
      PrintAnswer(invocation.function, answer, options_.json);
    } catch (const ManagerError& error) {
      PrintFailure(invocation.function, error.what(), options_.json);
    }
  }

  // Whether another call makes sense: the service did not stay away after a loss of the connection.
  bool is_served() const { return is_served_ && !served_.signals().Came(); }

  // Ends the session, and prints a summary of several calls.
  int Finish() {
    try {
      session_->End();
    } catch (const ManagerError& error) {
      if (succeeded_ == calls_ && !served_.signals().Came()) {
        Complain(error.what());
        return kNotAsExpected;
      }
    }
    if (calls_ > 1 && !options_.json) {
      PrintSummary();
    }
    return succeeded_ == calls_ ? kAsExpected : kNotAsExpected;
  }

 private:
  void Open() {
    std::vector<std::uint32_t> subsystems;
    if (options_.subsystem) {
      subsystems.push_back(*options_.subsystem);
    }
    session_ = served_.manager().OpenSession(opcode_, subsystems);
  }

  // Takes a new session when the last one has ended with its connection.
  int Send(const Invocation& invocation) {
    try {
      return session_->SendArgs(invocation.function, invocation.args);
    } catch (const ManagerError&) {
      if (session_->is_open()) {
        throw;
      }
      is_served_ = false;
      Open();
      is_served_ = true;
      return session_->SendArgs(invocation.function, invocation.args);
    }
  }

  void PrintSummary() {
    std::cout << calls_ << " calls, " << succeeded_ << " with success, "
              << latencies_.size() - succeeded_ << " with a failure, " << calls_ - latencies_.size()
              << " without an answer";
    if (!latencies_.empty()) {
      std::sort(latencies_.begin(), latencies_.end());
      std::cout << "; latency median " << MillisecondsText(latencies_[latencies_.size() / 2])
                << ", largest " << MillisecondsText(latencies_.back());
    }
    std::cout << std::endl;
  }

  Served& served_;
  const std::uint32_t opcode_;
  const CallOptions& options_;
  std::optional<ManagedSession> session_;
  bool is_served_ = true;
  std::size_t calls_ = 0;
  std::size_t succeeded_ = 0;
  std::vector<std::chrono::microseconds> latencies_;
};

void CallRepeated(Caller& caller, const CallOptions& options, const Invocation& invocation) {
  for (std::int64_t i = 0; i < options.repeat && caller.is_served(); ++i) {
    caller.Call(invocation);
  }
}

// A wrong line is reported, and the next one is read: a person may be typing.
int CallLines(Caller& caller, const CallOptions& options, const Served& served) {
  LineReader reader(STDIN_FILENO, served.signals());
  bool is_any_wrong = false;
  for (int number = 1; caller.is_served(); ++number) {
    const std::optional<std::string> line = reader.Next();
    if (!line) {
      break;
    }
    try {
      const std::vector<std::string> words = ShellWords(*line);
      if (!words.empty()) {
        CallRepeated(caller, options, InvocationOf(words, options.check));
      }
    } catch (const std::invalid_argument& error) {
      Complain("standard input:" + std::to_string(number) + ": " + error.what());
      is_any_wrong = true;
    }
  }
  const int result = caller.Finish();
  return is_any_wrong ? kCannotRun : result;
}

int Call(const CallOptions& options, const std::vector<std::string>& operands) {
  if (options.session == (operands.size() > 1)) {
    throw WrongUse(options.session ? "--session takes FUNCTION from the standard input"
                                   : "FUNCTION is missing");
  }
  if (!options.args_file.empty() && operands.size() != 2) {
    throw WrongUse("--args goes with FUNCTION and no other arguments");
  }
  const std::uint32_t opcode = ReadUnsigned(operands.front(), "an opcode");
  Invocation invocation;
  if (!options.session) {
    invocation = InvocationOf({operands.begin() + 1, operands.end()}, options.check);
  }
  if (!options.args_file.empty()) {
    invocation.args = ReadArgumentFile(options.args_file, options.check);
  }
  Served served(options.served);
  try {
    Caller caller(served, opcode, options);
    if (options.session) {
      return CallLines(caller, options, served);
    }
    CallRepeated(caller, options, invocation);
    return caller.Finish();
  } catch (const ManagerError& error) {
    Fail(error.what(), options.json);
    return kNotAsExpected;
  }
}

}  // namespace

int RunCall(int argc, char** argv) {
  const std::string about = std::string(kAbout) + kTypedArgumentsHelp;
  const CommandHelp help{"call",  "OPCODE [FUNCTION [ARGUMENT...]]", about.c_str(), kExamples, 1,
                         SIZE_MAX};
  CallOptions options;
  const auto operands = ReadCommandLine(
      help,
      Joined(
          Joined(ServedOptionList(options.served), QueryOptionList(options.served)),
          {{"subsystem", "ID", "open the session on this subsystem (default: the first one listed)",
            StoreId(options.subsystem)},
           {"args", "FILE", "take the arguments from FILE", StoreText(options.args_file)},
           {"repeat", "N", "call so often, and print a summary",
            StoreNumber(options.repeat, 1, kMostCalls)},
           {"session", nullptr, "call what the standard input names, in one session",
            SetFlag(options.session)},
           {"json", nullptr, "print one JSON object for each call", SetFlag(options.json)},
           {"unchecked", nullptr, "let wrong arguments pass, to see how the service takes them",
            [&](const std::string&) { options.check = Check::kNone; }}}),
      argc, argv);
  return operands ? Call(options, *operands) : kAsExpected;
}

}  // namespace orvd
