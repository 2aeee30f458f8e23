#include "sessions/session_table.h"

#include "base/never_destroyed.h"
#include "sessions/lost_sessions.h"

namespace orvd_client {

SessionTable& Sessions() {
  return NeverDestroyed<SessionTable>();
}

bool IsVisible(const Session& session) {
  const Generation served = ServedGeneration();
  return LostBefore(served) < session.generation && session.generation <= served;
}

SessionPairs* FindSession(uint32_t session_id) {
  const auto found = Sessions().sessions.find(session_id);
  const bool visible = found != Sessions().sessions.end() && IsVisible(found->second);
  return visible ? &found->second.pairs : nullptr;
}

SessionPairs* FindOrOpenSession(uint32_t session_id) {
  Session& session = Sessions().sessions[session_id];
  if (session.generation > ServedGeneration()) {
    return nullptr;
  }
  if (!IsVisible(session)) {
    session.pairs.clear();
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

void RemoveSessions(Generation generation) {
  auto& sessions = Sessions().sessions;
  for (auto session = sessions.begin(); session != sessions.end();) {
    session = session->second.generation <= generation ? sessions.erase(session) : ++session;
  }
}

}  // namespace orvd_client
