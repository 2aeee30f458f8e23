#include "measured_runs.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "wire.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kTransaction = R"("transac_id":)";

uint32_t NumberBehind(std::string_view text, std::string_view name) {
  const std::size_t found = text.rfind(name);
  if (found == std::string_view::npos) {
    throw std::runtime_error("no number in " + std::string(text.substr(0, 200)));
  }
  // strtoul stops inside the message, because text follows the number.
  return static_cast<uint32_t>(strtoul(text.data() + found + name.size(), nullptr, 10));
}

// All transaction ids have nine digits, so the length of the message does not change.
constexpr uint32_t kFirstTransaction = 100000000;

class Sender {
 public:
  Sender(const MeasuredRun& run, std::string message) : run_(run), message_(std::move(message)) {}

  void Next() {
    char digits[kTransactionDigits + 1];
    static_cast<void>(
        snprintf(digits, sizeof(digits), "%09u", kFirstTransaction + sent_ % 1000000));
    message_.replace(TransactionOffset(), kTransactionDigits, digits);
    run_.link.Send(message_);
    sum_ += kFirstTransaction + sent_ % 1000000;
    ++sent_;
  }
  uint32_t sent() const { return sent_; }
  uint64_t sum() const { return sum_; }

 private:
  const MeasuredRun& run_;
  std::string message_;
  uint32_t sent_ = 0;
  uint64_t sum_ = 0;
};

Seconds Since(Clock::time_point begin) {
  return Clock::now() - begin;
}

std::string CommandTask(const std::string& command) {
  return TaskMessage(R"({"name":")" + command + R"(","num_of_args":0,"args":[]})");
}

// Sends the command to the service, answers its requests, and returns when the service has answered
// the command.
template <typename AnswerTo>
Seconds RunCommand(const MeasuredRun& run, const std::string& command, AnswerTo answer_to) {
  const auto begin = Clock::now();
  run.link.Send(CommandTask(command));
  std::string_view message = run.link.Receive();
  while (message.find(R"("req_type":"exec_task")") == std::string_view::npos) {
    run.link.Send(answer_to(message));
    message = run.link.Receive();
  }
  RequirePart(message, R"("return":0,)");
  return Since(begin);
}

std::string OfferAnswer(std::string_view message) {
  const bool auth = message.find(R"("AUTH")") != std::string_view::npos;
  return std::string(R"({"req_type":")") + (auth ? "AUTH" : "REDY") + R"(","opcode":")" +
         std::to_string(NumberBehind(message, R"("Opcode":)")) + R"(","result":0})";
}

}  // namespace

Tasks::Tasks(Shape shape, int count, int outstanding_tasks, const std::string& answer)
    : message(TaskMessage(FunctionText(shape, static_cast<std::size_t>(count)))),
      result(answer.empty() ? R"("return":)" + std::to_string(count) + "," : answer),
      outstanding(outstanding_tasks) {}

Seconds Tasks::operator()(const MeasuredRun& run) const {
  Sender sender(run, message);
  uint64_t answered = 0;
  const std::string_view expected = run.decodes ? result : std::string_view(R"("return":0,)");
  const auto begin = Clock::now();
  auto last = begin;
  for (int i = 0; i < std::min(outstanding, run.operations); ++i) {
    sender.Next();
  }
  for (int i = 0; i < run.operations; ++i) {
    const std::string_view answer = run.link.Receive();
    if (run.latencies != nullptr) {
      const auto now = Clock::now();
      run.latencies->push_back(std::chrono::duration<float, std::micro>(now - last).count());
      last = now;
    }
    RequirePart(answer, expected);
    answered += NumberBehind(answer, kTransaction);
    if (static_cast<int>(sender.sent()) < run.operations) {
      sender.Next();
    }
  }
  const Seconds taken = Since(begin);
  if (answered != sender.sum()) {
    throw std::runtime_error("a task was answered twice, or not at all");
  }
  return taken;
}

Seconds CycleSessions(const MeasuredRun& run, uint32_t pairs) {
  const std::string start = SessionMessage("start_session", 100, pairs);
  const std::string ready = SessionMessage("ready_session", 100, pairs);
  const std::string end = SessionMessage("end_session", 100, pairs);
  const auto begin = Clock::now();
  for (int i = 0; i < run.operations; ++i) {
    run.link.Send(start);
    RequirePart(run.link.Receive(), "Success");
    run.link.Send(ready);
    run.link.Send(end);
    RequirePart(run.link.Receive(), "Success");
  }
  return Since(begin);
}

Seconds Notify(const MeasuredRun& run) {
  constexpr const char* kChange =
      R"({"req_type":"state_change","session_id":1,"state":"screen","value":"on",)"
      R"("package":"a.package.of.some.client"})";
  const auto begin = Clock::now();
  for (int i = 0; i < run.operations; ++i) {
    run.link.Send(kChange);
    RequirePart(run.link.Receive(), "ACK");
  }
  return Since(begin);
}

Seconds AnswerQueries(const MeasuredRun& run, uint32_t items) {
  std::string grants;
  for (uint32_t i = 0; i < items; ++i) {
    grants += i == 0 ? "1" : ",1";
  }
  const std::string head =
      R"({"req_type":"PERMISSION","status":0,"PermRes":[)" + grants + R"(],"QueryId":)";
  const std::string command = "ask " + std::to_string(items) + " " + std::to_string(run.operations);
  return RunCommand(run, command, [&head](std::string_view query) {
    return head + std::to_string(NumberBehind(query, R"("QueryId":)")) + "}";
  });
}

Seconds AnswerOffers(const MeasuredRun& run) {
  static uint32_t first = 0x100000;
  const std::string command =
      "offer " + std::to_string(first) + " " + std::to_string(run.operations);
  first += static_cast<uint32_t>(run.operations);
  return RunCommand(run, command, OfferAnswer);
}

}  // namespace bench
