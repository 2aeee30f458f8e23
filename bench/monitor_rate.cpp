// Measures tasks a second of a service with a direct connection, through orvd-sim monitor, and
// through one that records. Prints the rates, and the ratios to the direct one.
//
//   monitor_rate ORVD_SIM SERVICE ROUNDS FOLDER
//
// All three services are connected at the same time, and are measured alternately for short times.
// Other load on the machine therefore affects all of them. No processor is fixed.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "measured_runs.h"
#include "service_process.h"

namespace {

namespace fs = std::filesystem;

const fs::path kFolder = "/dev/socket";
const fs::path kManager = kFolder / "manager";
const fs::path kServicePath = kFolder / "orvd";  // a symbolic link
constexpr std::array kOutstanding{1, 8, 64};
constexpr std::array kWays{"direct", "monitor", "monitor --record"};
constexpr int kOperations = 300;  // in a row
constexpr std::chrono::milliseconds kPoll{5};
constexpr int kPolls = 2000;

pid_t Start(std::vector<std::string> words, const fs::path& output) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = 0;
  const int error = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    throw std::runtime_error("cannot start " + words[0]);
  }
  return pid;
}

// A monitor whose lines go to a file.
class MonitorProcess {
 public:
  MonitorProcess(const std::string& program, const fs::path& path, const fs::path& folder,
                 bool records)
      : name_(path.filename()) {
    std::vector<std::string> words{program, "monitor", "--path", path, "--upstream", kManager};
    if (records) {
      words.insert(words.end(), {"--record", folder / "recording"});
    }
    pid_ = Start(words, folder / path.filename());
    for (int i = 0; !fs::exists(path); ++i) {
      if (i == kPolls) {
        throw std::runtime_error("the monitor does not listen");
      }
      std::this_thread::sleep_for(kPoll);
    }
  }
  ~MonitorProcess() {
    kill(pid_, SIGTERM);
    rusage used{};
    wait4(pid_, nullptr, 0, &used);
    const auto milliseconds = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    std::printf("%-16s  %.0f ms in user mode, %.0f ms in the kernel\n", name_.c_str(),
                milliseconds(used.ru_utime), milliseconds(used.ru_stime));
  }
  MonitorProcess(const MonitorProcess&) = delete;
  MonitorProcess& operator=(const MonitorProcess&) = delete;

 private:
  const std::string name_;
  pid_t pid_ = 0;
};

std::unique_ptr<bench::ServiceProcess> StartService(orvd::ManagerPeer& manager,
                                                    const std::string& service,
                                                    const fs::path& path) {
  fs::remove(kServicePath);
  fs::create_symlink(path, kServicePath);
  return std::make_unique<bench::ServiceProcess>(manager, std::vector<std::string>{service});
}

// Tasks a second, by way and outstanding tasks, of each round.
using Rates = std::array<std::array<std::vector<double>, kOutstanding.size()>, kWays.size()>;

double Percentile(std::vector<double> values, std::size_t percent) {
  std::sort(values.begin(), values.end());
  return values[(values.size() - 1) * percent / 100];
}

// The best tenth of the rounds is the least disturbed one.
void Print(const Rates& rates) {
  for (std::size_t i = 0; i < kOutstanding.size(); ++i) {
    for (std::size_t way = 0; way < kWays.size(); ++way) {
      const double median = Percentile(rates[way][i], 50);
      const double best = Percentile(rates[way][i], 90);
      std::printf(
          "%2d outstanding  %-16s  median %6.0f/s, ratio %.2f  best tenth %6.0f/s, ratio %.2f\n",
          kOutstanding[i], kWays[way], median, median / Percentile(rates[0][i], 50), best,
          best / Percentile(rates[0][i], 90));
    }
  }
}

int Run(const std::string& program, const std::string& service, int rounds,
        const fs::path& folder) {
  orvd::ManagerPeer manager(kManager);
  const MonitorProcess monitor(program, kFolder / "monitor", folder, false);
  const MonitorProcess recorder(program, kFolder / "recorder", folder, true);
  const std::array services{StartService(manager, service, kManager),
                            StartService(manager, service, kFolder / "monitor"),
                            StartService(manager, service, kFolder / "recorder")};
  Rates rates;
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < kOutstanding.size(); ++i) {
      const bench::Tasks tasks(bench::Shape::kScalars, 10, kOutstanding[i]);
      for (std::size_t way = 0; way < kWays.size(); ++way) {
        const auto taken = tasks({services[way]->link(), true, kOperations, nullptr});
        rates[way][i].push_back(kOperations / taken.count());
      }
    }
  }
  Print(rates);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::cerr << "usage: monitor_rate ORVD_SIM SERVICE ROUNDS FOLDER\n";
    return 2;
  }
  try {
    return Run(argv[1], argv[2], std::stoi(argv[3]), argv[4]);
  } catch (const std::exception& error) {
    std::cerr << "monitor_rate: " << error.what() << '\n';
    return 1;
  }
}
