#include "served.h"

#include <sys/eventfd.h>

#include <array>
#include <iostream>

#include "orvex_simulator/json_text.h"

namespace orvd {
namespace {

ManagerOptions ManagerOptionsOf(const ServedOptions& options) {
  ManagerOptions of_manager;
  of_manager.path = options.path;
  of_manager.patience = std::chrono::seconds(options.patience);
  return of_manager;
}

}  // namespace

std::vector<Option> ServedOptionList(ServedOptions& options) {
  return {PathOption(options.path),
          PatienceOption(options.patience,
                         "wait so long for the service and for each answer (default 10)")};
}

std::vector<Option> QueryOptionList(ServedOptions& options) {
  return {{"deny", "PERMISSION", "do not grant this permission; may be repeated",
           AddText(options.denied)},
          {"info", "NAME=VALUE", "answer queries for this item; may be repeated",
           [&options](const std::string& value) {
             if (value.find('=') == std::string::npos) {
               throw WrongUse("expected NAME=VALUE, got '" + value + "'");
             }
             options.infos.push_back(value);
           }}};
}

Served::Served(const ServedOptions& options)
    : done_(Checked(eventfd(0, EFD_CLOEXEC), "eventfd")), manager_(ManagerOptionsOf(options)) {
  for (const std::string& permission : options.denied) {
    manager_.Deny(permission);
  }
  for (const std::string& info : options.infos) {
    const std::size_t equals = info.find('=');
    manager_.SetInfo(info.substr(0, equals), info.substr(equals + 1));
  }
  watcher_ = std::thread([this] { WatchSignals(); });
}

Served::~Served() {
  const std::uint64_t one = 1;
  static_cast<void>(write(done_.fd(), &one, sizeof(one)));
  watcher_.join();
}

void Served::WatchSignals() {
  std::array<pollfd, 2> watched{{{signals_.fd(), POLLIN, 0}, {done_.fd(), POLLIN, 0}}};
  while (poll(watched.data(), watched.size(), -1) < 0) {  // interrupted
  }
  if (watched[0].revents != 0) {
    manager_.Interrupt();
  }
}

void Fail(const std::string& why, bool json) {
  if (json) {
    std::cout << R"({"error":)" << WriteCompact(why) << "}" << std::endl;
  }
  Complain(why);
}

std::vector<Option> Joined(std::vector<Option> first, const std::vector<Option>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

}  // namespace orvd
