#include "load_sessions.h"

#include <algorithm>

#include "orvex_simulator/messages.h"

namespace orvd {

// Session ids are never used again: after a reset the library still has the old sessions.
void Sessions::Open(std::uint32_t opcode, const std::vector<std::uint32_t>& ssids,
                    std::size_t count) {
  for (; count > 0; --count) {
    sessions_.push_back({++last_id_, opcode, {}, ssids, Step::kIdle});
    Start(sessions_.back());
  }
}

void Sessions::Start(Session& session) {
  session.step = Step::kStarting;
  send_(SessionMessage("start_session", session.id, session.opcode, session.moving));
}

void Sessions::TakeAnswer(const Json::Value& answer) {
  const Json::Value& id = answer["session_id"];
  const auto session = std::find_if(sessions_.begin(), sessions_.end(), [&](const Session& one) {
    return id.isUInt() && one.id == id.asUInt();
  });
  if (session == sessions_.end()) {
    return;
  }
  const bool is_start = answer["req_type"] == "start_session";
  if (is_start && session->step == Step::kStarting) {
    TakeStart(*session, answer);
  } else if (!is_start && session->step != Step::kIdle && session->step != Step::kStarting) {
    TakeEnd(*session, answer);
  }
  ListReady();
}

// The library ends its process when a message makes a pair ready that has not started, so this
// names only pairs of the answer.
void Sessions::TakeStart(Session& session, const Json::Value& answer) {
  const std::vector<std::uint32_t> started = StartedSubsystems(answer);
  started_ += started.size();
  refused_ += session.moving.size() - std::min(session.moving.size(), started.size());
  session.step = Step::kIdle;
  session.moving.clear();
  if (!started.empty()) {
    send_(SessionMessage("ready_session", session.id, session.opcode, started));
    session.ready.insert(session.ready.end(), started.begin(), started.end());
  }
}

void Sessions::TakeEnd(Session& session, const Json::Value& answer) {
  const Step step = session.step;
  session.step = Step::kIdle;
  if (step == Step::kLeaving) {
    return;
  }
  if (step == Step::kEndingPart && answer["Result"] != "Success") {
    // The service keeps the pair in the session.
    session.ready.insert(session.ready.end(), session.moving.begin(), session.moving.end());
    session.moving.clear();
    return;
  }
  if (step == Step::kEndingAll) {
    session.id = ++last_id_;
  }
  Start(session);
}

void Sessions::Forget() {
  sessions_.clear();
  ready_.clear();
}

void Sessions::ListReady() {
  ready_.clear();
  for (const Session& session : sessions_) {
    for (const std::uint32_t ssid : session.ready) {
      ready_.push_back({session.id, session.opcode, ssid});
    }
  }
}

const Pair& Sessions::Next() {
  next_ready_ = next_ready_ + 1 < ready_.size() ? next_ready_ + 1 : 0;
  return ready_[next_ready_];
}

const Pair* Sessions::Renew(bool whole) {
  for (std::size_t left = sessions_.size(); left > 0; --left) {
    Session& session = sessions_[next_renewed_++ % sessions_.size()];
    if (session.step != Step::kIdle || session.ready.empty()) {
      continue;
    }
    ending_ = {session.id, session.opcode, session.ready.front()};
    if (whole) {
      session.step = Step::kEndingAll;
      session.moving.swap(session.ready);
      send_(EndSessionMessage(session.id));
    } else {
      session.step = Step::kEndingPart;
      session.moving = {ending_.ssid};
      session.ready.erase(session.ready.begin());
      send_(SessionMessage("end_session", session.id, session.opcode, session.moving));
    }
    ListReady();
    return &ending_;
  }
  return nullptr;
}

void Sessions::End() {
  for (Session& session : sessions_) {
    if (session.step == Step::kIdle && !session.ready.empty()) {
      session.step = Step::kLeaving;
      session.ready.clear();
      send_(EndSessionMessage(session.id));
    }
  }
  ListReady();
}

std::size_t Sessions::waiting() const {
  return static_cast<std::size_t>(
      std::count_if(sessions_.begin(), sessions_.end(),
                    [](const Session& one) { return one.step != Step::kIdle; }));
}

}  // namespace orvd
