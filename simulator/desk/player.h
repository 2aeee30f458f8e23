// Plays a scenario against a running service.

#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "conversation.h"
#include "orvex_simulator/manager_peer.h"
#include "scenario.h"

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
  // `pace` is a pause before each step, so that a person can follow.
  Player(ManagerPeer& peer, Conversation& conversation, Milliseconds pace)
      : peer_(peer), conversation_(conversation), pace_(pace) {}

  // The peer begins to listen at the first step that is neither "answer" nor "say". So a service
  // cannot send a request before the rule for it is set. Stops at the first expectation that is not
  // met.
  Score Play(const std::vector<Step>& steps);

 private:
  // Each returns the reason why the step failed, or an empty text.
  std::string Run(const Step& step);
  std::string Answer(const Step& step);
  std::string Expect(const Step& step);
  std::string Exactly(const Step& step);
  std::string Task(const Step& step);
  std::string Result(const Step& step);
  std::string Rejected(const Step& step);
  std::string Signal(const Step& step);
  std::string CheckTasks();
  std::string KeepAnswer(const std::string& message);

  ManagerPeer& peer_;
  Conversation& conversation_;
  const Milliseconds pace_;
  Score score_;
  std::set<int> open_;    // tasks that were sent, and neither answered nor rejected
  std::set<int> closed_;  // tasks answered or rejected: a further answer is a failure
  int rejected_ = 0;
  std::map<int, Json::Value> answers_;  // received, but no step has asked for them yet
};

}  // namespace orvd
