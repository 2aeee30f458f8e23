#include <array>
#include <cstdio>
#include <iostream>
#include <string>

#include "command_line.h"
#include "commands.h"
#include "recording.h"
#include "replayer.h"

namespace orvd {
namespace {

constexpr const char* kAbout =
    R"(Listens on SOCKET, waits for a service, plays the Manager's side of RECORDING to it, and compares
what the service sends with the recording. Ends of connections are played in their way.

A packet is sent to the service when all packets that were recorded before it have come. Answers of
tasks may come in another order. Service ids, query ids and the members that --ignore names may
differ. The first difference ends the replay, with exit code 1.

After manager_shut, packets of the service may be missing or come in addition: when a service reads
the end is a matter of chance.)";

constexpr const char* kExamples =
    "  orvd-sim replay field.jsonl\n"
    "  orvd-sim replay field.jsonl --ignore celsius --keep-going\n"
    "  orvd-sim replay field.jsonl --timing --patience 60\n";

void PrintSummary(const ReplayScore& score) {
  std::printf("%llu packets sent, %llu packets compared, %llu differences%s\n",
              static_cast<unsigned long long>(score.sent),
              static_cast<unsigned long long>(score.compared),
              static_cast<unsigned long long>(score.differences),
              score.stopped ? ", stopped before the end" : "");
}

}  // namespace

int RunReplay(int argc, char** argv) {
  const CommandHelp help{"replay", "RECORDING", kAbout, kExamples, 1, 1};
  ReplayOptions options;
  options.path = kSocketPath;
  std::int64_t patience = 10;
  std::vector<std::string> ignored;
  const auto operands = ReadCommandLine(
      help,
      {PathOption(options.path),
       {"ignore", "MEMBER", "do not compare members of this name; may be repeated",
        AddText(ignored)},
       {"timing", nullptr, "keep the pauses of the recording", SetFlag(options.timing)},
       {"keep-going", nullptr, "go on after a difference", SetFlag(options.keep_going)},
       PatienceOption(patience, "how long to wait for each packet (default 10)")},
      argc, argv);
  if (!operands) {
    return kAsExpected;
  }
  options.ignored.insert(ignored.begin(), ignored.end());
  options.patience = std::chrono::seconds(patience);
  RecordingFile file(operands->front());
  const StopSignals stop;
  const ReplayScore score =
      Replayer(file.reader(), operands->front(), options, stop, std::cout).Play();
  PrintSummary(score);
  const bool went_through = score.differences == 0 && !score.stopped;
  if (went_through && score.sent + score.compared == 0) {
    throw CannotRun(operands->front() + ": no packets in it");
  }
  return went_through ? kAsExpected : kNotAsExpected;
}

}  // namespace orvd
