// What call, list and notify have in common: a SimulatedManager that signals interrupt, and its
// options.

#pragma once

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "command_line.h"
#include "orvex_simulator/simulated_manager.h"
#include "stop_signals.h"
#include "unix_socket.h"

namespace orvd {

struct ServedOptions {
  std::string path = kSocketPath;
  std::int64_t patience = 10;  // seconds
  std::vector<std::string> denied;
  std::vector<std::string> infos;
};

// --path and --patience.
std::vector<Option> ServedOptionList(ServedOptions& options);
// --deny and --info, for a service that asks while it serves.
std::vector<Option> QueryOptionList(ServedOptions& options);

// A manager whose waiting functions end with a signal. Construct it before other threads start.
class Served {
 public:
  // Throws std::system_error.
  explicit Served(const ServedOptions& options);
  ~Served();
  Served(const Served&) = delete;
  Served& operator=(const Served&) = delete;

  SimulatedManager& manager() { return manager_; }
  const StopSignals& signals() const { return signals_; }

 private:
  void WatchSignals();

  StopSignals signals_;
  const Descriptor done_;  // an eventfd, readable at the end
  SimulatedManager manager_;
  std::thread watcher_;
};

// Complains that a command could not do its work. With `json`, prints {"error":...} as well.
void Fail(const std::string& why, bool json);

std::vector<Option> Joined(std::vector<Option> first, const std::vector<Option>& second);

}  // namespace orvd
