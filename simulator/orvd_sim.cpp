// orvd-sim: a Manager for a host. Plays a scenario against a running service.

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "conversation.h"
#include "manager_peer.h"
#include "player.h"
#include "scenario.h"

namespace {

constexpr int kNotAsExpected = 1;
constexpr int kBadUsage = 2;

constexpr const char* kUsage =
    R"(usage: orvd-sim [--path SOCKET] [--color auto|always|never] [--pace MS]
                [--summary FILE] SCENARIO

Listens on SOCKET (default /dev/socket/orvd), waits for a service, plays SCENARIO against it and prints
the conversation, with a pause of MS milliseconds before each step, and a summary, added to FILE if there is one.
Exits with 0 when everything came as expected, with 1 when not, with 2 for a scenario, an option or a path
that cannot be used.

)";

struct Options {
  std::string path = "/dev/socket/orvd";
  std::string color = "auto";
  std::optional<int> pace = 0;
  std::string summary;
  std::string scenario;
  bool help = false;
};

// Returns false if a word is not an option.
bool ReadOptions(const std::vector<std::string>& words, Options& options) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const bool has_value = i + 1 < words.size();
    if (words[i] == "--help") {
      options.help = true;
    } else if (words[i] == "--path" && has_value) {
      options.path = words[++i];
    } else if (words[i] == "--color" && has_value) {
      options.color = words[++i];
    } else if (words[i] == "--pace" && has_value) {
      options.pace = orvd::ReadInteger(words[++i]);
    } else if (words[i] == "--summary" && has_value) {
      options.summary = words[++i];
    } else if (words[i].substr(0, 1) != "-" && options.scenario.empty()) {
      options.scenario = words[i];
    } else {
      return false;
    }
  }
  const bool known_color =
      options.color == "auto" || options.color == "always" || options.color == "never";
  const bool known_pace = options.pace && *options.pace >= 0;
  return options.help || (known_color && known_pace && !options.scenario.empty());
}

bool UseColor(const std::string& choice) {
  return choice == "always" || (choice == "auto" && isatty(STDOUT_FILENO) == 1);
}

std::string Summary(const orvd::Score& score) {
  return std::to_string(score.sent) + " tasks sent, " + std::to_string(score.answered) +
         " answered as expected, " + std::to_string(score.rejected) + " rejected as expected, " +
         std::to_string(score.failures) + " failures\n";
}

void WriteSummary(const std::string& summary, const std::string& path) {
  if (path.empty()) {
    std::cout << summary << std::flush;
  } else if (!(std::ofstream(path, std::ios::app) << summary << std::flush)) {
    throw std::runtime_error(path + ": cannot be written");
  }
}

int Run(const Options& options) {
  std::ifstream file(options.scenario);
  if (!file) {
    throw orvd::ScenarioError(options.scenario + ": cannot be read");
  }
  const std::vector<orvd::Step> steps = orvd::ReadScenario(file, options.scenario);
  orvd::Conversation conversation(stdout, UseColor(options.color));
  orvd::ManagerPeer peer(options.path, false);
  peer.SetObserver([&](const orvd::TranscriptEntry& entry) { conversation.Print(entry); });
  orvd::Player player(peer, conversation, orvd::Milliseconds(options.pace.value_or(0)));
  const orvd::Score score = player.Play(steps);
  peer.SetObserver(nullptr);
  WriteSummary(Summary(score), options.summary);
  if (score.die && score.failures == 0) {
    // A process that ends may close the client's connection before the listening socket. A quick
    // client would then reconnect to this process.
    peer.StopListening();
    static_cast<void>(raise(SIGKILL));
  }
  return score.failures == 0 ? 0 : kNotAsExpected;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ReadOptions({argv + 1, argv + argc}, options)) {
    std::cerr << kUsage;
    return kBadUsage;
  }
  if (options.help) {
    std::cout << kUsage << orvd::kScenarioHelp;
    return 0;
  }
  try {
    return Run(options);
  } catch (const std::exception& error) {
    std::cerr << "orvd-sim: " << error.what() << "\n";
    return kBadUsage;
  }
}
