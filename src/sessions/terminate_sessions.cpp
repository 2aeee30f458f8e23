#include "sessions/terminate_sessions.h"

#include "base/log.h"
#include "sessions/end_pairs.h"
#include "sessions/session_state.h"

using namespace orvd_client;

namespace {

void EndPairsOfSession(uint32_t session_id, const SessionPairs& pairs, EndCount& count)
    REQUIRES(Sessions().mutex) {
  for (const auto& [pair, state] : pairs) {
    const auto entry = FindReadyEntry(pair.first);
    if (entry) {
      CallEndCallbackAndLog(session_id, pair, *entry, count);
    }
  }
}

}  // namespace

int terminate_sessions() {
  const auto lowest = LowestReadyEntry();
  if (!lowest) {
    LOG_AT(kProgress, "No sessions due to no ready opcodes.");
    return 0;
  }
  const auto& [opcode, entry] = *lowest;
  inform_session_state(0, opcode, 0, entry.state_callback, entry.user_data, ORVD_TERMINATED);

  EndCount count;
  uint32_t last_session_id = 0;
  {
    const MutexLock lock(Sessions().mutex);
    for (const auto& [session_id, session] : Sessions().sessions) {
      if (IsVisible(session)) {
        last_session_id = session_id;
        EndPairsOfSession(session_id, session.pairs, count);
      }
    }
    RemoveSessions(ServedGeneration());
  }
  LogEnded(last_session_id, count);
  return count.ended >= 1 ? 0 : -1;
}
