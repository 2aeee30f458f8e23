// The session table: the started and the ready pairs of every open session.

#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "base/mutex.h"
#include "link/generation.h"

namespace orvd_client {

enum orvd_start_state : int {
  ORVD_STARTED = 0,  // the start callback has agreed; no "ready_session" has come yet
  ORVD_READY = 1,
};

using SessionPair = std::pair<uint32_t, uint32_t>;  // opcode, subsystem id
using SessionPairs = std::map<SessionPair, orvd_start_state>;

struct Session {
  Generation generation = 0;  // the last generation that opened or changed it
  SessionPairs pairs;
};

// The session mutex is held during the callbacks for start, ready and end of a pair.
struct SessionTable {
  Mutex mutex;
  std::map<uint32_t, Session> sessions GUARDED_BY(mutex);
};

SessionTable& Sessions();

// Returns whether this thread may use the session. A thread of a later generation does not see
// sessions of a lost generation. An outdated receive thread does not see sessions of a later
// generation.
bool IsVisible(const Session& session);

// Returns the pairs of the session; null if no visible session has this id.
SessionPairs* FindSession(uint32_t session_id) REQUIRES(Sessions().mutex);
// The same, but opens the session if it is not open. Returns null on an outdated receive thread if
// a later generation has opened the session.
SessionPairs* FindOrOpenSession(uint32_t session_id) REQUIRES(Sessions().mutex);

// Returns the state of a started pair; null if the pair is not started or `pairs` is null.
orvd_start_state* FindPair(SessionPairs* pairs, const SessionPair& pair);

// Removes the sessions of `generation` and of earlier generations, without a callback.
void RemoveSessions(Generation generation) REQUIRES(Sessions().mutex);

}  // namespace orvd_client
