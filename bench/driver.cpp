// The Manager's side of the measured operations. run.py starts the services, and writes to the
// standard input what to measure. The answer to each line has the times of the operations in ns.
//
//   connect                        accepts the next service, prints its number
//   tasks SERVICE COUNT OUTSTANDING EXPECTED FUNCTION ARGUMENT...   EXPECTED: part of each answer
//   sessions SERVICE COUNT PAIRS   starts, makes ready and ends a session
//   notifications SERVICE COUNT    the service acknowledges each one
//   ask SERVICE COUNT ITEMS        the service sends permission queries; prints one time for all
//
// The load engine of orvd-sim is no replacement: it drives one service only, sorts latencies into
// classes of 3 %, and polls and samples between the tasks.

#include <sys/socket.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string_view>

#include "common.h"
#include "orvex_simulator/manager_peer.h"

namespace {

using Times = std::vector<int64_t>;

constexpr uint32_t kNumber = 100000000;  // stands in a message for a number that is set later

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what);
  }
}

class Service {
 public:
  explicit Service(int fd) : fd_(fd) {}
  void Send(std::string_view text) const {
    Require(send(fd_, text.data(), text.size(), MSG_NOSIGNAL) >= 0, "the service is gone");
  }
  // The result is valid until the next call.
  std::string_view Receive(std::string_view expected = "") {
    const ssize_t size = recv(fd_, buffer_.data(), buffer_.size(), 0);
    Require(size > 0, "the service is gone");
    const std::string_view text(buffer_.data(), static_cast<std::size_t>(size));
    Require(text.find(expected) != std::string_view::npos,
            "expected " + std::string(expected) + ", got " + std::string(text.substr(0, 200)));
    return text;
  }

 private:
  const int fd_;
  std::vector<char> buffer_ = std::vector<char>(1 << 20);
};

class Stopwatch {
 public:
  void Lap() {
    const auto now = std::chrono::steady_clock::now();
    times.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(now - last_).count());
    last_ = now;
  }
  Times times;

 private:
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

// The number behind the last `name` of a message. Text follows the number, so strtoul stops.
uint32_t NumberBehind(std::string_view text, std::string_view name) {
  const std::size_t found = text.rfind(name);
  Require(found != std::string_view::npos, "no " + std::string(name));
  return static_cast<uint32_t>(strtoul(text.data() + found + name.size(), nullptr, 10));
}

Times MeasureTasks(Service& service, uint32_t count, std::istream& line) {
  uint32_t outstanding = 0;
  std::string expected;
  line >> outstanding >> expected;
  std::string message = bench::TaskMessage(line, kNumber);
  const std::size_t place = message.find(std::to_string(kNumber));
  uint64_t unanswered = 0;  // the sum of the numbers
  uint32_t sent = 0;
  Stopwatch watch;
  while (watch.times.size() < count) {
    for (; sent < count && sent < watch.times.size() + outstanding; ++sent) {
      const std::string digits = std::to_string(kNumber + sent);
      service.Send(message.replace(place, digits.size(), digits));
      unanswered += kNumber + sent;
    }
    unanswered -= NumberBehind(service.Receive(expected), R"("transac_id":)");
    watch.Lap();
  }
  Require(unanswered == 0, "a task was answered twice, or not at all");
  return watch.times;
}

struct Step {
  std::string message;
  std::string answer;  // a part of it; empty: there is no answer
};

Times MeasureSteps(Service& service, uint32_t count, const std::vector<Step>& steps) {
  Stopwatch watch;
  for (; count > 0; --count, watch.Lap()) {
    for (const Step& step : steps) {
      service.Send(step.message);
      if (!step.answer.empty()) {
        service.Receive(step.answer);
      }
    }
  }
  return watch.times;
}

std::vector<Step> SessionSteps(uint32_t session, uint32_t pairs) {
  const auto message = [&](const char* req_type) {
    return orvd::SessionMessage(req_type, session, bench::kOpcode, bench::Subsystems(pairs));
  };
  return {{message("start_session"), "Success"},
          {message("ready_session"), ""},
          {message("end_session"), "Success"}};
}

// Lets the service send queries, and answers them until it has answered the command.
Times MeasureQueries(Service& service, uint32_t items, uint32_t count) {
  const std::string number = std::to_string(kNumber);
  std::string grants = orvd::PermissionAnswer(kNumber, std::vector<bool>(items, true));
  const std::size_t place = grants.find(number);
  grants.erase(place, number.size());
  const std::string command = "ask " + std::to_string(items) + " " + std::to_string(count);
  const std::string task = orvd::TaskMessage(1, bench::kOpcode, 1, 1, command, Json::arrayValue);
  Stopwatch watch;
  service.Send(task);
  std::string_view message = service.Receive();
  for (; message.find(R"("exec_task")") == std::string_view::npos; message = service.Receive()) {
    const uint32_t id = NumberBehind(message, R"("QueryId":)");
    service.Send(std::string(grants).insert(place, std::to_string(id)));
  }
  watch.Lap();
  Require(NumberBehind(message, R"("read":)") == count, command + " has failed");
  return watch.times;
}

Times Measure(const std::string& what, Service& service, uint32_t count, std::istream& line) {
  if (what == "tasks") {
    return MeasureTasks(service, count, line);
  }
  uint32_t number = 0;
  line >> number;
  if (what == "sessions") {
    return MeasureSteps(service, count, SessionSteps(100, number));
  }
  if (what == "notifications") {
    return MeasureSteps(service, count,
                        {{orvd::StateChangeMessage(1, "screen", "on", "a.package.name"), "ACK"}});
  }
  return MeasureQueries(service, number, count);
}

// After the answer to REDY the service expects no other answer.
Service Connect(orvd::ManagerPeer& manager) {
  Require(manager.NextOf("INIT") && manager.NextOf("AUTH") && manager.NextOf("REDY"),
          "no service has registered");
  manager.WaitForRules();
  Service service(manager.HandOver());
  std::vector<Step> steps = SessionSteps(1, 1);
  steps.pop_back();  // the session stays open
  MeasureSteps(service, 1, steps);
  return service;
}

void Run(const char* path) {
  orvd::ManagerPeer manager(path);
  manager.AgreeToEverything(7);
  std::cout << std::endl;  // services can connect now
  std::vector<Service> services;
  std::size_t number = 0;
  uint32_t count = 0;
  for (std::string text, what; std::getline(std::cin, text); std::cout << std::endl) {
    std::istringstream line(text);
    line >> what;
    if (what == "connect") {
      services.push_back(Connect(manager));
      std::cout << services.size() - 1;
      continue;
    }
    line >> number >> count;
    for (const int64_t time : Measure(what, services.at(number), count, line)) {
      std::cout << time << ' ';
    }
  }
}

}  // namespace

int main(int /*argc*/, char** argv) {
  try {
    Run(argv[1]);
  } catch (const std::exception& error) {
    std::cerr << "bench_driver: " << error.what() << '\n';
    return 1;
  }
}
