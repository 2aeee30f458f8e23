#include <iostream>
#include <iterator>

#include "command_line.h"
#include "commands.h"
#include "load_engine.h"
#include "load_report.h"
#include "load_tasks.h"
#include "orvex_simulator/json_text.h"
#include "orvex_simulator/typed_arguments.h"

namespace orvd {
namespace {

constexpr std::int64_t kMostOutstanding = 100000;
constexpr std::int64_t kMostSessions = 10000;
constexpr std::int64_t kMostSeconds = 31536000;
constexpr std::int64_t kMostTasks = std::int64_t{1} << 53U;
constexpr std::int64_t kDefaultSeconds = 10;
constexpr std::int64_t kDefaultGrowth = 5;

constexpr const char* kAbout =
    R"(Takes the Manager's place on SOCKET and drives the service that connects: agrees to its registration, opens
sessions on all its subsystems, and keeps tasks outstanding until the time is over. Then waits for the last answers,
and prints a summary. Prints a line of progress on stderr, each second on a terminal, else every 5 seconds.

TASKS has one task a line, FUNCTION [ARGUMENT...], without spaces in an argument; '#' begins a comment. The tasks are
sent in turn. Without TASKS, the functions are called with generated arguments of all types.

  answered   in time, on the connection on which the task was sent
  failed     answered with a status other than 0
  rejected   sent to a session that had ended, so that no answer is right; with --churn
  missing    not answered within the limit
  duplicate  a second answer, or the answer of a rejected task
  lost       outstanding when the connection ended
  late       answered after the limit, or on a later connection; once for each task
  wrong      the answer has another session, or members that do not fit the task

The exit code is 1 when an answer is missing, duplicate or wrong, when no task was answered or all failed, when a
session message has no answer, when the service stays away, or when it grew. --check and --strict add reasons.
SIGINT and SIGTERM end the time.

The service grew when it has over 4 more threads or descriptors at the end, without a task, than at the begin, or
when its memory grew by 2 MB and by more than --growth from the second quarter of the time to the last one. The
memory is judged from 5 seconds on; less may be the first use of things. Only the last process is judged.

With --churn, the connection ends in five ways, in turn:
  close        both directions, after everything of the service was read
  half-close   the sending direction; then reads until the service closes
  empty        an empty packet; then reads until the service closes
  reset        with an unread message. A service on the raw interface does not come back from this
  absent       as a killed Manager: at once, and for a second nobody listens
Every second end comes after all answers; the others interrupt tasks.
Meanwhile single pairs and whole sessions end and begin again, and messages of an unknown kind are sent.
)";
constexpr const char* kExamples =
    "  orvd-sim load --function read_temperature --seconds 30\n"
    "  orvd-sim load --outstanding 200 --sessions 8 --count 100000 tasks.txt\n"
    "  orvd-sim load --churn 3 --notify --strict --json tasks.txt\n";

struct Choice {
  LoadOptions load;
  Demands demands;
  std::vector<std::string> functions;
  std::int64_t growth = kDefaultGrowth;
  bool json = false;
};

std::string CheckedWay(const std::string& way) {
  std::string checked;
  StoreOneOf(checked, {kWays[0], kWays[1], kWays[2], kWays[3], kWays[4]})(way);
  return checked;
}

std::vector<Option> Options(Choice& choice) {
  LoadOptions& load = choice.load;
  return {
      PathOption(load.path),
      {"outstanding", "N", "tasks that are unanswered at a time (default 32)",
       StoreNumber(load.outstanding, 1, kMostOutstanding)},
      {"sessions", "S", "sessions of each opcode (default 4)",
       StoreNumber(load.sessions, 1, kMostSessions)},
      {"seconds", "N", "end after this time (default 10, without --count)",
       StoreNumber(load.seconds, 1, kMostSeconds)},
      {"count", "N", "end after so many tasks", StoreNumber(load.count, 1, kMostTasks)},
      {"function", "NAME", "call it with generated arguments; may be repeated (default check)",
       AddText(choice.functions)},
      {"opcode", "OPCODE", "only this opcode (default all)", StoreId(load.opcode)},
      {"churn", "SECONDS", "end the connection so often, and sessions all the time",
       StoreNumber(load.churn, 1, kMostSeconds)},
      {"way", "WAY", "with --churn, end it only in this way; may be repeated",
       [&load](const std::string& way) { load.ways.push_back(CheckedWay(way)); }},
      {"notify", nullptr, "send a notification with every 20th task", SetFlag(load.notify)},
      {"answer-limit", "SECONDS", "an answer that takes longer is missing (default 30)",
       StoreNumber(load.answer_limit, 1, kMostSeconds)},
      {"wait", "SECONDS", "the longest time for a service to connect (default 60)",
       StoreNumber(load.wait, 1, kMostSeconds)},
      {"check", nullptr, "each answer must have the checksum of its arguments, and no failure",
       SetFlag(load.check)},
      {"strict", nullptr,
       "not one more thread or descriptor; fail also if /proc does not show the service",
       SetFlag(choice.demands.strict)},
      {"growth", "PERCENT", "how far the memory of the service may grow (default 5)",
       StoreNumber(choice.growth, 0, 1000)},
      {"json", nullptr, "print the summary as a JSON object", SetFlag(choice.json)},
  };
}

void Complete(Choice& choice, const std::vector<std::string>& operands) {
  LoadOptions& load = choice.load;
  if (!operands.empty() && !choice.functions.empty()) {
    throw WrongUse("--function and TASKS exclude each other");
  }
  if (!load.ways.empty() && load.churn == 0) {
    throw WrongUse("--way needs --churn");
  }
  if (choice.functions.empty()) {
    choice.functions.emplace_back("check");
  }
  load.tasks = operands.empty() ? GeneratedTasks(choice.functions) : ReadTasks(operands.front());
  if (load.ways.empty()) {
    load.ways.assign(std::begin(kWays), std::end(kWays));
  }
  load.seconds = load.seconds == 0 && load.count == 0 ? kDefaultSeconds : load.seconds;
  choice.demands.check = load.check;
  choice.demands.growth = static_cast<double>(choice.growth);
}

int Run(const Choice& choice) {
  const StopSignals stop;
  const LoadResult result = Load(choice.load, stop).Run();
  const std::vector<std::string> problems = Problems(result, choice.demands);
  std::cout << (choice.json ? WriteCompact(SummaryJson(result, problems)) + "\n"
                            : Summary(result, problems))
            << std::flush;
  return problems.empty() ? kAsExpected : kNotAsExpected;
}

}  // namespace

int RunLoad(int argc, char** argv) {
  std::string about = std::string(kAbout) + "\n" + kTypedArgumentsHelp;
  about.pop_back();  // the line break
  const CommandHelp help{"load", "[TASKS]", about.c_str(), kExamples, 0, 1};
  Choice choice;
  choice.load.path = kSocketPath;
  const auto operands = ReadCommandLine(help, Options(choice), argc, argv);
  if (!operands) {
    return kAsExpected;
  }
  Complete(choice, *operands);
  return Run(choice);
}

}  // namespace orvd
