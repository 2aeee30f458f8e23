// Plays a scenario against a service that someone else started.

#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "conversation.h"
#include "manager_peer.h"
#include "scenario.h"

namespace orvd {

struct Score {
  int sent = 0;
  int answered = 0;  // as expected
  int rejected = 0;  // as expected
  int failures = 0;  // expectations not met
  bool die = false;  // the scenario ends in a crash
};

class Player {
 public:
  // `pace` is a pause before each step, for human readers.
  Player(ManagerPeer& peer, Conversation& conversation, Milliseconds pace)
      : peer_(peer), conversation_(conversation), pace_(pace) {}

  // The peer listens from the first step that is no rule, so that no request comes before its rule.
  // Stops at the first expectation that is not met.
  Score Play(const std::vector<Step>& steps);

 private:
  // The reason why the step failed; empty when it did not.
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
  std::set<int> open_;    // sent, neither answered nor said to be rejected
  std::set<int> closed_;  // answered or rejected: no answer may come any more
  int rejected_ = 0;
  std::map<int, Json::Value> answers_;  // come, not asked for yet
};

}  // namespace orvd
