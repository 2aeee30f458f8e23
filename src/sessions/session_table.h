// Which pairs of every open session are started, and which are ready.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <utility>

#include "link/mutex.h"

enum orvd_start_state : int {
  ORVD_STARTED = 0,  // the start callback agreed; no "ready_session" yet
  ORVD_READY = 1,
};

using SessionPair = std::pair<uint32_t, uint32_t>;  // opcode, subsystem id
using SessionPairs = std::map<SessionPair, orvd_start_state>;

// All users run on a receive thread. The session mutex is held around the session-state callbacks
// of start, ready, end and termination.
struct SessionTable {
  Mutex mutex;
  std::map<uint32_t, SessionPairs> sessions GUARDED_BY(mutex);
};

SessionTable& Sessions();
