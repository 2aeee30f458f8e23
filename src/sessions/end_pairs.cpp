#include "sessions/end_pairs.h"

#include "base/log.h"
#include "sessions/session_state.h"

namespace orvd_client {

bool CallEndCallback(uint32_t session_id, const SessionPair& pair, const ReadyEntry& entry,
                     EndCount& count) {
  const bool agreed =
      inform_session_state(session_id, pair.first, pair.second, entry.state_callback,
                           entry.user_data, ORVD_SESSION_END) == 0;
  ++(agreed ? count.ended : count.failed);
  return agreed;
}

bool CallEndCallbackAndLog(uint32_t session_id, const SessionPair& pair, const ReadyEntry& entry,
                           EndCount& count) {
  const bool agreed = CallEndCallback(session_id, pair, entry, count);
  LOG_AT(kProgress, "Session %u with 0x%08x::%u terminate %s", session_id, pair.first, pair.second,
         agreed ? "success" : "failed");
  return agreed;
}

void LogEnded(uint32_t session_id, const EndCount& count) {
  LOG_AT(kProgress, "Ended session %u with %d service (%d failed)", session_id, count.ended,
         count.failed);
}

}  // namespace orvd_client
