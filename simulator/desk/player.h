// Plays a scenario against a running service.

#pragma once

#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "conversation.h"
#include "orvex_simulator/manager_peer.h"
#include "scenario_file.h"
#include "stop_signals.h"

namespace orvd {

struct Score {
  int sent = 0;
  int answered = 0;  // tasks answered as expected
  int rejected = 0;  // tasks not answered, as expected
  int failures = 0;  // expectations that were not met
  bool die = false;  // the scenario ends with the step "die"
};

class Player {
 public:
  // `pace` is a pause before each step, so that a person can follow. `patience` is how long a step
  // waits for the service. A signal of `stop` ends the scenario as a failure.
  Player(ManagerPeer& peer, Conversation& conversation, Milliseconds pace, Milliseconds patience,
         const StopSignals& stop)
      : peer_(peer), conversation_(conversation), pace_(pace), patience_(patience), stop_(stop) {}

  // The peer begins to listen at the first step that is more than a heading or a rule. So a service
  // cannot send a request before the rule for it is set. Stops at the first expectation that is not
  // met.
  Score Play(const std::vector<Step>& steps);

 private:
  // How requests of one kind are answered.
  struct Plan {
    Json::Value answer;  // null: not at all
    Milliseconds delay{0};
    int times = 1;
  };
  using Action = std::string (Player::*)(const Step& step);

  class Interrupted : public std::exception {};  // by a signal

  // Each returns the reason why the step failed, or an empty text.
  std::string PlayStep(const Step& step);
  std::string Run(const Step& step);
  std::string Say(const Step& step);
  std::string Answer(const Step& step);
  std::string Delay(const Step& step);
  std::string Repeat(const Step& step);
  std::string Send(const Step& step);
  std::string Raw(const Step& step);
  std::string Expect(const Step& step);
  std::string Exactly(const Step& step);
  std::string Reply(const Step& step);
  std::string Quiet(const Step& step);
  std::string Task(const Step& step);
  std::string Result(const Step& step);
  std::string Rejected(const Step& step);
  std::string Signal(const Step& step);
  std::string Connection(const Step& step);
  std::string EndOfFile(const Step& step);
  std::string HangUp(const Step& step);
  std::string Silence(const Step& step);
  std::string Speak(const Step& step);
  std::string Refuse(const Step& step);
  std::string Accept(const Step& step);
  std::string Die(const Step& step);
  std::string CheckTasks();
  std::string KeepAnswer(const std::string& message);
  std::string Keep(const std::string& message);
  std::optional<std::string> TakeKept(const std::function<bool(const std::string&)>& fits);
  std::string Close(const std::string& message);
  void ForgetConnection();
  bool IsAnswered(const std::string& kind) const;
  bool Wait(Milliseconds limit, const std::function<bool(Milliseconds)>& wait) const;
  void Begin(const Step& step);
  void SetRule(const std::string& kind);
  std::optional<std::string> Next(Milliseconds limit);

  ManagerPeer& peer_;
  Conversation& conversation_;
  const Milliseconds pace_;
  const Milliseconds patience_;
  const StopSignals& stop_;
  bool has_begun_ = false;     // the peer listens, unless a step has stopped it
  std::size_t connected_ = 0;  // the latest connection that the scenario has come to
  std::size_t ended_ = 0;      // the latest connection whose end the scenario has come to
  std::map<std::string, Plan> plans_;
  Score score_;
  std::set<int> open_;    // tasks that were sent, and neither answered nor rejected
  std::set<int> closed_;  // tasks answered or rejected: a further answer is a failure
  int rejected_ = 0;
  std::map<int, std::string> answers_;  // received, but no step has asked for them yet
  std::deque<std::string> kept_;        // likewise: other messages that nothing has answered
  std::map<std::string, std::deque<std::string>> expected_;  // by kind, without a reply so far
};

}  // namespace orvd
