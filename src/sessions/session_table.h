// Which pairs of every open session are started, and which are ready.

#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "link/connection.h"
#include "link/mutex.h"

enum orvd_start_state : int {
  ORVD_STARTED = 0,  // the start callback agreed; no "ready_session" yet
  ORVD_READY = 1,
};

using SessionPair = std::pair<uint32_t, uint32_t>;  // opcode, subsystem id
using SessionPairs = std::map<SessionPair, orvd_start_state>;

struct Session {
  Generation generation = 0;  // the last one that started, readied or ended pairs of the session
  SessionPairs pairs;
};

// The session mutex is held around the session-state callbacks of start, ready, end and
// termination.
struct SessionTable {
  Mutex mutex;
  std::map<uint32_t, Session> sessions GUARDED_BY(mutex);
};

SessionTable& Sessions();

// Whether the session exists for this thread. Sessions of a lost generation do not exist for a later
// one. Sessions of a later generation do not exist for an outdated receive thread.
bool IsVisible(const Session& session);

// The pairs of a visible session; null when there is none.
SessionPairs* FindSession(uint32_t session_id) REQUIRES(Sessions().mutex);
// The same, and opens the session when it is not open. Null for an outdated receive thread when a
// later generation has opened the session.
SessionPairs* FindOrOpenSession(uint32_t session_id) REQUIRES(Sessions().mutex);

// The state of a started pair; null when the pair is not started, or there are no pairs.
orvd_start_state* FindPair(SessionPairs* pairs, const SessionPair& pair);

// Removes the sessions of this generation and of earlier ones, without a callback.
void ForgetSessions(Generation generation) REQUIRES(Sessions().mutex);
