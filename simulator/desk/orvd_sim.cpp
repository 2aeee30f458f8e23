// orvd-sim: the Manager's side of a service, for work without a device.

#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "command_line.h"
#include "commands.h"

#define ORVD_TEXT_OF(token) #token
#define ORVD_TEXT(macro) ORVD_TEXT_OF(macro)

namespace {

constexpr const char* kUsage = R"(usage: orvd-sim COMMAND [OPTION...] [OPERAND...]
       orvd-sim [OPTION...] SCENARIO     (the command play)

Commands:
)";
constexpr const char* kExitCodes = R"(
orvd-sim COMMAND --help explains a command. Exit codes of all commands: 0 as expected, 1 not as expected,
2 wrong use, or a file or path that cannot be used.
)";
constexpr std::size_t kSummaryColumn = 12;

void PrintHelp(std::ostream& out) {
  out << kUsage;
  for (const orvd::Command& command : orvd::kCommands) {
    std::string name = std::string("  ") + command.name;
    name.resize(kSummaryColumn, ' ');
    out << name << command.summary << '\n';
  }
  out << kExitCodes;
}

void RefuseUnknownWord(const std::string& word) {
  if (word.front() != '-' && !std::ifstream(word)) {
    throw orvd::WrongUse("'" + word + "' is neither a command nor a readable scenario");
  }
}

// Without the name of a command, all words belong to play.
int RunCommand(int argc, char** argv) {
  for (const orvd::Command& command : orvd::kCommands) {
    if (command.name == std::string(argv[1])) {
      return command.run(argc - 1, argv + 1);
    }
  }
  RefuseUnknownWord(argv[1]);
  return orvd::RunPlay(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string first = argc > 1 ? argv[1] : "";
  if (first.empty() || first == "--help") {
    PrintHelp(first.empty() ? std::cerr : std::cout);
    return first.empty() ? orvd::kCannotRun : orvd::kAsExpected;
  }
  if (first == "--version") {
    std::cout << "orvd-sim " ORVD_TEXT(ORVD_SIM_VERSION) "\n";
    return orvd::kAsExpected;
  }
  try {
    return RunCommand(argc, argv);
  } catch (const std::exception& error) {
    orvd::Complain(error.what());
    return orvd::kCannotRun;
  }
}
