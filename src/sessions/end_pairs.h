// Ends single pairs: for an "end_session" of the Manager, and when all sessions are terminated.

#pragma once

#include "registration/ready_table.h"
#include "sessions/session_table.h"

namespace orvd_client {

struct EndCount {
  int ended = 0;
  int failed = 0;
};

// Calls the service's callback with the end of the pair, and counts the result. Returns whether the
// service agreed.
bool CallEndCallback(uint32_t session_id, const SessionPair& pair, const ReadyEntry& entry,
                     EndCount& count) REQUIRES(Sessions().mutex);

// The same, and logs the result for the pair.
bool CallEndCallbackAndLog(uint32_t session_id, const SessionPair& pair, const ReadyEntry& entry,
                           EndCount& count) REQUIRES(Sessions().mutex);

void LogEnded(uint32_t session_id, const EndCount& count);

}  // namespace orvd_client
