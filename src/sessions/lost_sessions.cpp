#include "sessions/lost_sessions.h"

#include "link/connection.h"
#include "link/mutex.h"
#include "registration/ready_table.h"
#include "sessions/session_table.h"

namespace {

// The two last generations that were noted. A receive thread whose own generation was noted still
// sees its sessions, which it has to end, but none that was lost before.
Mutex gLostMutex;
Generation gLast GUARDED_BY(gLostMutex) = 0;
Generation gBeforeLast GUARDED_BY(gLostMutex) = 0;

}  // namespace

void NoteLostSessions(Generation generation) {
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

void ForgetLostSessions() {
  const Generation lost = LostBefore(ServedGeneration() + 1);
  const MutexLock lock(Sessions().mutex);
  ForgetSessions(lost);
}
