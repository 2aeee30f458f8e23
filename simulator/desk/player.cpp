#include "player.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>

#include "byte_text.h"
#include "difference.h"
#include "orvex_simulator/json_text.h"
#include "read_number.h"

namespace orvd {
namespace {

constexpr const char* kTask = "exec_task";
constexpr const char* kNothing = "nothing";
constexpr const char* kNobody = "nobody is connected";
constexpr const char* kNotTaken = "nobody took the message";
constexpr std::size_t kLongestMessage = 2000;  // bytes
constexpr std::size_t kMostKept = 1000;        // messages
constexpr Milliseconds kBetweenLooks{50};      // for a signal

std::string Expected(const std::string& wanted, const std::string& came) {
  return "expected " + wanted + ", came " + PrintableBegin(came, kLongestMessage);
}

std::string AnswerTo(const std::string& request_text, Json::Value answer) {
  const Json::Value request = ParseObject(request_text);
  answer["req_type"] = request["req_type"];
  if (request.isMember("Opcode") && request["Opcode"].isConvertibleTo(Json::stringValue)) {
    answer["opcode"] = request["Opcode"].asString();
  }
  if (request.isMember("QueryId")) {
    answer["QueryId"] = request["QueryId"];
  }
  return WriteCompact(answer);
}

}  // namespace

Score Player::Play(const std::vector<Step>& steps) {
  std::string failure;
  for (auto step = steps.begin(); failure.empty() && step != steps.end(); ++step) {
    failure = PlayStep(*step);
  }
  if (failure.empty()) {
    failure = CheckTasks();
  }
  if (!failure.empty()) {
    conversation_.Failure(failure);
    ++score_.failures;
  }
  return score_;
}

std::string Player::PlayStep(const Step& step) {
  std::string failure;
  try {
    Begin(step);
    failure = Run(step);
  } catch (const Interrupted&) {
    failure = "interrupted";
  }
  return failure.empty() ? "" : "line " + std::to_string(step.line) + ": " + failure;
}

void Player::Begin(const Step& step) {
  const std::set<std::string> early{"say", "answer", "delay", "repeat"};
  if (early.count(step.verb) != 0) {
    return;
  }
  if (!has_begun_ && step.verb != "refuse") {
    peer_.Listen();
  }
  has_begun_ = true;
  if (stop_.Wait(pace_)) {
    throw Interrupted();
  }
}

// Returns whether `wait` has returned true within `limit`. Calls it for short times, so that a
// signal ends the step.
bool Player::Wait(Milliseconds limit, const std::function<bool(Milliseconds)>& wait) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const auto left = std::chrono::ceil<Milliseconds>(end - std::chrono::steady_clock::now());
    if (wait(std::clamp(left, Milliseconds(0), kBetweenLooks))) {
      return true;
    }
    if (stop_.Came()) {
      throw Interrupted();
    }
    if (left.count() <= 0) {
      return false;
    }
  }
}

std::string Player::Run(const Step& step) {
  static const std::map<std::string, Action> actions{{"say", &Player::Say},
                                                     {"answer", &Player::Answer},
                                                     {"delay", &Player::Delay},
                                                     {"repeat", &Player::Repeat},
                                                     {"send", &Player::Send},
                                                     {"raw", &Player::Raw},
                                                     {"expect", &Player::Expect},
                                                     {"exactly", &Player::Exactly},
                                                     {"reply", &Player::Reply},
                                                     {"quiet", &Player::Quiet},
                                                     {"task", &Player::Task},
                                                     {"result", &Player::Result},
                                                     {"rejected", &Player::Rejected},
                                                     {"signal", &Player::Signal},
                                                     {"connection", &Player::Connection},
                                                     {"end-of-file", &Player::EndOfFile},
                                                     {"hang-up", &Player::HangUp},
                                                     {"silence", &Player::Silence},
                                                     {"speak", &Player::Speak},
                                                     {"refuse", &Player::Refuse},
                                                     {"accept", &Player::Accept},
                                                     {"die", &Player::Die}};
  return (this->*actions.at(step.verb))(step);
}

std::string Player::Say(const Step& step) {
  conversation_.Heading(step.rest);
  return "";
}

std::string Player::Answer(const Step& step) {
  plans_[step.kind].answer = step.rest.empty() ? Json::Value() : step.json;
  SetRule(step.kind);
  return "";
}

std::string Player::Delay(const Step& step) {
  plans_[step.kind].delay = Milliseconds(ReadWhole<int>(step.rest).value_or(0));
  SetRule(step.kind);
  return "";
}

std::string Player::Repeat(const Step& step) {
  plans_[step.kind].times = ReadWhole<int>(step.rest).value_or(1);
  SetRule(step.kind);
  return "";
}

void Player::SetRule(const std::string& kind) {
  const Plan& plan = plans_[kind];
  if (plan.answer.isNull()) {
    peer_.SetRule(kind, nullptr);
    return;
  }
  peer_.SetRule(kind,
                [&peer = peer_, plan](const std::string& request) -> std::optional<std::string> {
                  const std::string answer = AnswerTo(request, plan.answer);
                  for (int i = 0; i < plan.times; ++i) {
                    if (plan.delay.count() == 0) {
                      peer.Send(answer);
                    } else {
                      peer.SendLater(answer, plan.delay);
                    }
                  }
                  return std::nullopt;
                });
}

std::string Player::Send(const Step& step) {
  return peer_.Send(WriteCompact(step.json)) ? "" : kNotTaken;
}

std::string Player::Raw(const Step& step) {
  return peer_.Send(RawBytes(step.rest).value_or("")) ? "" : "nobody took the packet";
}

bool Player::IsAnswered(const std::string& kind) const {
  const auto plan = plans_.find(kind);
  return plan != plans_.end() && !plan->second.answer.isNull();
}

// Messages overtake each other. What a step passes over is kept for a later step, unless it was a
// request that has its answer.
std::string Player::Keep(const std::string& message) {
  const std::string kind = KindOf(message);
  if (kind == kTask) {
    return KeepAnswer(message);
  }
  if (!IsAnswered(kind)) {
    kept_.push_back(message);
    if (kept_.size() > kMostKept) {
      kept_.pop_front();
    }
  }
  return "";
}

std::optional<std::string> Player::TakeKept(const std::function<bool(const std::string&)>& fits) {
  const auto found = std::find_if(kept_.begin(), kept_.end(), fits);
  if (found == kept_.end()) {
    return std::nullopt;
  }
  std::string message = std::move(*found);
  kept_.erase(found);
  return message;
}

void Player::ForgetConnection() {
  kept_.clear();
  expected_.clear();
}

// Task answers come in any order and between other messages. They are kept until a step asks for
// them.
std::string Player::KeepAnswer(const std::string& message) {
  if (KindOf(message) != kTask) {
    return "";
  }
  const Json::Value id = ParseObject(message)["transac_id"];
  if (!id.isInt()) {
    return Expected("a number as transac_id", message);
  }
  const bool first = closed_.count(id.asInt()) == 0 && answers_.emplace(id.asInt(), message).second;
  return first ? "" : Expected("no further answer of task " + id.asString(), message);
}

// An answer that "expect" or "exactly" takes closes its task too.
std::string Player::Close(const std::string& message) {
  const Json::Value id = ParseObject(message)["transac_id"];
  if (KindOf(message) != kTask || !id.isInt()) {
    return "";
  }
  if (closed_.count(id.asInt()) != 0 || answers_.count(id.asInt()) != 0) {
    return Expected("no further answer of task " + id.asString(), message);
  }
  if (open_.erase(id.asInt()) != 0) {
    closed_.insert(id.asInt());
    ++score_.answered;
  }
  return "";
}

// Whoever sees a request may count on its answer being sent, unless that is delayed.
std::optional<std::string> Player::Next(Milliseconds limit) {
  std::optional<std::string> message;
  Wait(limit, [this, &message](Milliseconds part) {
    message = peer_.Next(part);
    return message.has_value();
  });
  peer_.WaitForRules();
  return message;
}

std::string Player::Expect(const Step& step) {
  std::optional<std::string> message = TakeKept([&step](const std::string& kept) {
    return KindOf(kept) == step.kind && CompareMembers(step.json, kept).empty();
  });
  while (!message) {
    message = Next(patience_);
    if (!message) {
      return Expected(step.kind, kNothing);
    }
    const bool found = KindOf(*message) == step.kind;
    std::string failure = found ? Close(*message) : Keep(*message);
    if (!failure.empty()) {
      return failure;
    }
    message = found ? message : std::nullopt;
  }
  if (!IsAnswered(step.kind)) {
    expected_[step.kind].push_back(*message);
  }
  return CompareMembers(step.json, *message);
}

std::string Player::Exactly(const Step& step) {
  if (TakeKept([&step](const std::string& kept) { return kept == step.rest; })) {
    return "";
  }
  const std::optional<std::string> message = Next(patience_);
  if (!message) {
    return Expected(step.rest, kNothing);
  }
  std::string failure = Close(*message);
  return failure.empty() ? CompareTexts(step.rest, *message) : failure;
}

std::string Player::Reply(const Step& step) {
  std::deque<std::string>& requests = expected_[step.kind];
  if (requests.empty()) {
    return "no expect has found a " + step.kind + " that is without a reply";
  }
  const std::string reply = AnswerTo(requests.front(), step.json);
  requests.pop_front();
  return peer_.Send(reply) ? "" : kNotTaken;
}

std::string Player::Quiet(const Step& step) {
  const auto message = Next(Milliseconds(ReadWhole<int>(step.kind).value_or(0)));
  return message ? Expected(kNothing, *message) : "";
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
    const std::optional<std::string> message = Next(patience_);
    if (!message) {
      return Expected("the answer of task " + std::to_string(transac_id), kNothing);
    }
    std::string failure = Keep(*message);
    if (!failure.empty()) {
      return failure;
    }
  }
  const std::string answer = answers_[transac_id];
  answers_.erase(transac_id);
  open_.erase(transac_id);  // not there if a Manager that died has sent the task
  closed_.insert(transac_id);
  std::string difference = CompareMembers(step.json, answer);
  score_.answered += difference.empty() ? 1 : 0;
  return difference;
}

std::string Player::Rejected(const Step& step) {
  const int transac_id = ReadWhole<int>(step.kind).value_or(0);
  if (answers_.count(transac_id) != 0) {
    return Expected("no answer of task " + step.kind, answers_[transac_id]);
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
    return kNobody;
  }
  const int number = SignalNumber(step.kind).value_or(0);
  return kill(*pid, number) == 0 ? "" : "the service cannot be signalled";
}

std::string Player::Connection(const Step& /*step*/) {
  ++connected_;
  ForgetConnection();
  return Wait(patience_,
              [this](Milliseconds part) { return peer_.WaitConnections(connected_, part); })
             ? ""
             : "the service did not connect";
}

std::string Player::EndOfFile(const Step& /*step*/) {
  connected_ = std::max(connected_, ended_ + 1);
  ended_ = connected_;
  ForgetConnection();
  return Wait(patience_, [this](Milliseconds part) { return peer_.WaitEnded(ended_, part); })
             ? ""
             : "the service did not close the connection";
}

// The service may connect again at once. So the number of the connection is taken before its end.
std::string Player::HangUp(const Step& step) {
  if (!peer_.client_pid()) {
    return kNobody;
  }
  connected_ = peer_.connections();
  if (step.kind == "half") {
    peer_.HangUpForWriting();
    return "";
  }
  ended_ = connected_;
  ForgetConnection();
  if (step.kind == "close") {
    peer_.HangUp();
    return "";
  }
  return peer_.HangUpWithReset(patience_) ? "" : "no message came that could stay unread";
}

std::string Player::Silence(const Step& /*step*/) {
  if (!peer_.client_pid()) {
    return kNobody;
  }
  peer_.StopReading();
  return "";
}

std::string Player::Speak(const Step& /*step*/) {
  peer_.ResumeReading();
  return "";
}

std::string Player::Refuse(const Step& /*step*/) {
  peer_.StopListening();
  return "";
}

std::string Player::Accept(const Step& /*step*/) {
  peer_.Listen();
  return "";
}

std::string Player::Die(const Step& /*step*/) {
  score_.die = true;
  return "";
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
    return Expected("no answer that the scenario does not name", answer);
  }
  // When a Manager dies, its open tasks are unanswered. The next Manager may get the answers.
  for (const int transac_id : score_.die ? std::set<int>() : open_) {
    return "task " + std::to_string(transac_id) + " has neither a result nor a rejection";
  }
  score_.rejected = rejected_;
  return "";
}

}  // namespace orvd
