#include "player.h"

#include <csignal>
#include <optional>
#include <thread>

#include "orvex_simulator/json_text.h"

namespace orvd {
namespace {

constexpr const char* kTask = "exec_task";

// Compares whole numbers as integers, because a double does not hold all 64 bits.
bool SameNumber(const Json::Value& left, const Json::Value& right) {
  if (left.isInt64() && right.isInt64()) {
    return left.asInt64() == right.asInt64();
  }
  if (left.isUInt64() && right.isUInt64()) {
    return left.asUInt64() == right.asUInt64();
  }
  return left.asDouble() == right.asDouble();
}

// Returns whether `actual` has all members of `expected`, with the same values.
bool Matches(const Json::Value& expected, const Json::Value& actual) {
  if (expected.isObject()) {
    bool all = actual.isObject();
    for (const std::string& name : expected.getMemberNames()) {
      all = all && actual.isMember(name) && Matches(expected[name], actual[name]);
    }
    return all;
  }
  if (expected.isArray()) {
    bool all = actual.isArray() && actual.size() == expected.size();
    for (Json::ArrayIndex i = 0; all && i < expected.size(); ++i) {
      all = Matches(expected[i], actual[i]);
    }
    return all;
  }
  if (expected.isNumeric() && actual.isNumeric()) {
    return SameNumber(expected, actual);
  }
  return expected == actual;
}

std::string Expected(const std::string& wanted, const std::string& came) {
  return "expected " + wanted + ", came " + came;
}

std::string AnswerTo(const std::string& request_text, Json::Value answer) {
  const Json::Value request = ParseObject(request_text);
  answer["req_type"] = request["req_type"];
  if (request.isMember("Opcode")) {
    answer["opcode"] = request["Opcode"].asString();
  }
  if (request.isMember("QueryId")) {
    answer["QueryId"] = request["QueryId"];
  }
  return WriteCompact(answer);
}

}  // namespace

Score Player::Play(const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    if (step.verb != "answer" && step.verb != "say") {
      peer_.Listen();
      std::this_thread::sleep_for(pace_);
    }
    const std::string failure = Run(step);
    if (!failure.empty()) {
      conversation_.Failure("line " + std::to_string(step.line) + ": " + failure);
      ++score_.failures;
      return score_;
    }
  }
  const std::string failure = CheckTasks();
  if (!failure.empty()) {
    conversation_.Failure(failure);
    ++score_.failures;
  }
  return score_;
}

std::string Player::Run(const Step& step) {
  if (step.verb == "say") {
    conversation_.Heading(step.rest);
    return "";
  }
  if (step.verb == "answer") {
    return Answer(step);
  }
  if (step.verb == "send") {
    return peer_.Send(WriteCompact(step.json)) ? "" : "nobody took the message";
  }
  if (step.verb == "expect") {
    return Expect(step);
  }
  if (step.verb == "exactly") {
    return Exactly(step);
  }
  if (step.verb == "task") {
    return Task(step);
  }
  if (step.verb == "result") {
    return Result(step);
  }
  if (step.verb == "rejected") {
    return Rejected(step);
  }
  if (step.verb == "signal") {
    return Signal(step);
  }
  if (step.verb == "die") {
    score_.die = true;
    return "";
  }
  return peer_.WaitEndOfFile() ? "" : "the service did not close the connection";
}

std::string Player::Answer(const Step& step) {
  if (step.rest.empty()) {
    peer_.SetRule(step.kind, nullptr);
    return "";
  }
  peer_.SetRule(step.kind, [answer = step.json](const std::string& request) {
    return AnswerTo(request, answer);
  });
  return "";
}

// Task answers come in any order and between other messages. They are kept until a step asks for
// them.
std::string Player::KeepAnswer(const std::string& message) {
  if (KindOf(message) != kTask) {
    return "";
  }
  const Json::Value answer = ParseObject(message);
  const Json::Value& id = answer["transac_id"];
  if (!id.isInt()) {
    return Expected("a number as transac_id", message);
  }
  const bool first = closed_.count(id.asInt()) == 0 && answers_.emplace(id.asInt(), answer).second;
  return first ? "" : Expected("no further answer of task " + id.asString(), message);
}

std::string Player::Expect(const Step& step) {
  for (;;) {
    const std::optional<std::string> message = peer_.Next();
    if (!message) {
      return Expected(step.kind, "nothing");
    }
    if (KindOf(*message) == step.kind) {
      return Matches(step.json, ParseObject(*message))
                 ? ""
                 : Expected(WriteCompact(step.json), *message);
    }
    std::string failure = KeepAnswer(*message);
    if (!failure.empty()) {
      return failure;
    }
  }
}

std::string Player::Exactly(const Step& step) {
  const std::optional<std::string> message = peer_.Next();
  return message == step.rest ? "" : Expected(step.rest, message.value_or("nothing"));
}

std::string Player::Task(const Step& step) {
  Json::Value task = step.json;
  task["req_type"] = kTask;
  const int transac_id = task["transac_id"].asInt();
  if (!open_.insert(transac_id).second) {
    return "task " + std::to_string(transac_id) + " is still open";
  }
  closed_.erase(transac_id);
  ++score_.sent;
  return peer_.Send(WriteCompact(task)) ? "" : "nobody took the task";
}

std::string Player::Result(const Step& step) {
  const int transac_id = step.json["transac_id"].asInt();
  while (answers_.count(transac_id) == 0) {
    const std::optional<std::string> message = peer_.Next();
    if (!message) {
      return Expected("the answer of task " + std::to_string(transac_id), "nothing");
    }
    std::string failure = KeepAnswer(*message);
    if (!failure.empty()) {
      return failure;
    }
  }
  const Json::Value answer = answers_[transac_id];
  answers_.erase(transac_id);
  open_.erase(transac_id);  // not there if a Manager that died has sent the task
  closed_.insert(transac_id);
  if (!Matches(step.json, answer)) {
    return Expected(WriteCompact(step.json), WriteCompact(answer));
  }
  ++score_.answered;
  return "";
}

std::string Player::Rejected(const Step& step) {
  const int transac_id = ReadInteger(step.kind).value_or(0);
  if (answers_.count(transac_id) != 0) {
    return Expected("no answer of task " + step.kind, WriteCompact(answers_[transac_id]));
  }
  if (open_.erase(transac_id) == 0) {
    return "task " + step.kind + " was not sent, or is answered";
  }
  closed_.insert(transac_id);
  ++rejected_;
  return "";
}

std::string Player::Signal(const Step& step) {
  const std::optional<int> pid = peer_.client_pid();
  if (!pid) {
    return "nobody is connected";
  }
  const int number = SignalNumber(step.kind).value_or(0);
  return kill(*pid, number) == 0 ? "" : "the service cannot be signalled";
}

// Does not wait for further messages. A scenario with "rejected" has waited for the end of the
// connection, or ends with "die"; the next Manager then gets what still comes.
std::string Player::CheckTasks() {
  while (const auto message = peer_.Next(Milliseconds(0))) {
    std::string failure = KeepAnswer(*message);
    if (!failure.empty()) {
      return failure;
    }
  }
  for (const auto& [transac_id, answer] : answers_) {
    return Expected("no answer that the scenario does not name", WriteCompact(answer));
  }
  // When a Manager dies, its open tasks are unanswered. The next Manager may get the answers.
  for (const int transac_id : score_.die ? std::set<int>() : open_) {
    return "task " + std::to_string(transac_id) + " has neither a result nor a rejection";
  }
  score_.rejected = rejected_;
  return "";
}

}  // namespace orvd
