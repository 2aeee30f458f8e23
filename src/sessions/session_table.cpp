#include "sessions/session_table.h"

#include <atomic>

#include "link/never_destroyed.h"

namespace {

// The last generation that was noted as lost. Generations begin with 1.
std::atomic<Generation> gLostGeneration{0};

// A later generation must not see what a lost one left, nor must a lost generation's own thread,
// which still has to tell the service, lose it here.
void ForgetLostSessions() REQUIRES(Sessions().mutex) {
  static Generation forgotten = 0;
  const Generation lost = gLostGeneration;
  if (forgotten < lost && lost < ServedGeneration()) {
    ForgetSessions(lost);
    forgotten = lost;
  }
}

}  // namespace

SessionTable& Sessions() {
  return ProcessWide<SessionTable>();
}

SessionPairs* FindSession(uint32_t session_id) {
  ForgetLostSessions();
  const auto found = Sessions().sessions.find(session_id);
  const bool visible =
      found != Sessions().sessions.end() && found->second.generation <= ServedGeneration();
  return visible ? &found->second.pairs : nullptr;
}

SessionPairs* FindOrOpenSession(uint32_t session_id) {
  ForgetLostSessions();
  Session& session = Sessions().sessions[session_id];
  if (session.generation > ServedGeneration()) {
    return nullptr;
  }
  session.generation = ServedGeneration();
  return &session.pairs;
}

orvd_start_state* FindPair(SessionPairs* pairs, const SessionPair& pair) {
  if (pairs == nullptr) {
    return nullptr;
  }
  const auto found = pairs->find(pair);
  return found != pairs->end() ? &found->second : nullptr;
}

void ForgetSessions(Generation generation) {
  auto& sessions = Sessions().sessions;
  for (auto session = sessions.begin(); session != sessions.end();) {
    session = session->second.generation <= generation ? sessions.erase(session) : ++session;
  }
}

void NoteSessionsLost(Generation generation) {
  Generation lost = gLostGeneration;
  while (lost < generation && !gLostGeneration.compare_exchange_weak(lost, generation)) {
  }
}
