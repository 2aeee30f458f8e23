#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "conversation.h"
#include "orvex_simulator/manager_peer.h"
#include "player.h"
#include "scenario_file.h"
#include "stop_signals.h"

namespace orvd {
namespace {

constexpr std::int64_t kLongestPace = 60000;

struct PlayOptions {
  std::string path = kSocketPath;
  std::string color = "auto";
  std::int64_t pace = 0;
  std::int64_t patience = 10;
  std::string summary;
};

bool UseColor(const std::string& choice) {
  return choice == "always" || (choice == "auto" && isatty(STDOUT_FILENO) == 1);
}

std::string Summary(const Score& score) {
  return std::to_string(score.sent) + " tasks sent, " + std::to_string(score.answered) +
         " answered as expected, " + std::to_string(score.rejected) + " rejected as expected, " +
         std::to_string(score.failures) + " failures\n";
}

// The standard output, or a file to which the summary is appended.
class SummaryFile {
 public:
  SummaryFile(const std::string& name, const std::string& scenario) : name_(name) {
    if (!name.empty()) {
      RefuseSameFile(name, scenario);
      file_.open(name, std::ios::app);
      Check();
    }
  }
  void Write(const std::string& summary) {
    (name_.empty() ? std::cout : file_) << summary << std::flush;
    Check();
  }

 private:
  void Check() const {
    if (!file_) {
      throw CannotRun(name_ + ": cannot be written");
    }
  }

  const std::string name_;
  std::ofstream file_;
};

std::vector<Step> ReadScenarioFile(const std::string& name) {
  std::ifstream file(name);
  if (!file) {
    throw ScenarioError(name + ": cannot be read");
  }
  return ReadScenario(file, name);
}

int Play(const PlayOptions& options, const std::string& scenario) {
  const std::vector<Step> steps = ReadScenarioFile(scenario);
  SummaryFile summary(options.summary, scenario);
  const StopSignals stop;
  Conversation conversation(stdout, UseColor(options.color));
  ManagerPeer peer(options.path, false);
  peer.SetObserver([&](const TranscriptEntry& entry) { conversation.Print(entry); });
  Player player(peer, conversation, Milliseconds(options.pace),
                std::chrono::seconds(options.patience), stop);
  const Score score = player.Play(steps);
  peer.SetObserver(nullptr);
  summary.Write(Summary(score));
  if (score.die && score.failures == 0) {
    // A process that ends may close the client's connection before the listening socket. A quick
    // client would then reconnect to this process.
    peer.StopListening();
    static_cast<void>(raise(SIGKILL));
  }
  return score.failures == 0 ? kAsExpected : kNotAsExpected;
}

}  // namespace

int RunPlay(int argc, char** argv) {
  const std::string about =
      std::string(
          R"(Listens on SOCKET, waits for a service, plays SCENARIO against it, prints the
conversation and a summary.

)") + kScenarioHelp;
  const CommandHelp help{
      "play", "SCENARIO", about.c_str(), "  orvd-sim play examples/demo.scenario\n", 1, 1};
  PlayOptions options;
  const auto operands = ReadCommandLine(
      help,
      {PathOption(options.path),
       {"color", "WHEN", "auto (default), always or never",
        StoreOneOf(options.color, {"auto", "always", "never"})},
       {"pace", "MS", "a pause before each step, in milliseconds",
        StoreNumber(options.pace, 0, kLongestPace)},
       PatienceOption(options.patience, "how long a step waits for the service (default 10)"),
       {"summary", "FILE", "append the summary to FILE, do not print it",
        StoreText(options.summary)}},
      argc, argv);
  return operands ? Play(options, operands->front()) : kAsExpected;
}

}  // namespace orvd
