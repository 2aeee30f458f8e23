#include "sessions/lost_sessions.h"

#include "base/mutex.h"
#include "registration/ready_table.h"
#include "sessions/session_table.h"

namespace orvd_client {

namespace {

// The last two recorded generations. A receive thread whose own generation was recorded still sees
// the sessions of that generation, because it must end them. It does not see sessions lost earlier.
Mutex gLostMutex;
Generation gLast GUARDED_BY(gLostMutex) = 0;
Generation gBeforeLast GUARDED_BY(gLostMutex) = 0;

}  // namespace

void RecordLostSessions(Generation generation) {
  if (!LowestReadyEntry()) {
    return;
  }
  const MutexLock lock(gLostMutex);
  if (gLast < generation) {
    gBeforeLast = gLast;
    gLast = generation;
  }
}

Generation LostBefore(Generation generation) {
  const MutexLock lock(gLostMutex);
  return gLast < generation ? gLast : gBeforeLast;
}

void RemoveLostSessions() {
  const Generation lost = LostBefore(ServedGeneration() + 1);
  const MutexLock lock(Sessions().mutex);
  RemoveSessions(lost);
}

}  // namespace orvd_client
