#include "sessions/session_ready.h"

#include <mutex>

#include "base/log.h"
#include "link/service_id.h"
#include "sessions/opcode_walk.h"
#include "sessions/session_state.h"
#include "sessions/session_table.h"

namespace orvd_client {

namespace {

bool IsOpen(uint32_t session_id) {
  const MutexLock lock(Sessions().mutex);
  if (FindSession(session_id) != nullptr) {
    return true;
  }
  LOG_AT(kFailure, "Invalid session_id was passed to handle_session_ready %d",
         static_cast<int>(session_id));
  LOG_AT(kFailure, "Failed to handle session ready event");
  return false;
}

// Returns whether the pair became ready.
bool MakeReady(uint32_t session_id, int service_id, const SessionPair& pair,
               const ReadyEntry& entry) REQUIRES(Sessions().mutex) {
  const auto [opcode, ssid] = pair;
  orvd_start_state* state = FindPair(FindOrOpenSession(session_id), pair);
  if (state == nullptr) {
    LOG_AT(kFailure, "Session %u with 0x%08x::%u not started before ready call", session_id, opcode,
           ssid);
    return false;
  }
  if (*state == ORVD_READY) {
    LOG_AT(kFailure, "Session %u with 0x%08x::%u already in ready state", session_id, opcode, ssid);
    return false;
  }
  CallSessionState(service_id, {ORVD_SESSION_READY, opcode, ssid, session_id}, entry.state_callback,
                   entry.user_data);
  *state = ORVD_READY;
  return true;
}

// Deliberate: one lock object serves the whole message, and a rejected pair leaves it locked. A
// further pair then throws std::system_error, which ends the process on the receive thread. The
// pairs before it stay ready. A rejected last pair has no further effect.
void ReadyPairs(const Json::Value& msg, uint32_t session_id,
                int service_id) NO_THREAD_SAFETY_ANALYSIS {
  std::unique_lock<std::mutex> lock(Sessions().mutex.native(), std::defer_lock);
  WalkOpcodes(
      msg, ReadHexOpcode,
      [&](uint32_t opcode, const ReadyEntry& entry, uint32_t ssid) NO_THREAD_SAFETY_ANALYSIS {
        LOG_AT(kProgress, "Trying to ready session %u with 0x%08x::%u", session_id, opcode, ssid);
        lock.lock();
        if (MakeReady(session_id, service_id, {opcode, ssid}, entry) || ThisThreadIsOutdated()) {
          lock.unlock();
        }
      });
}

}  // namespace

void handle_session_ready(Json::Value& msg) {
  uint32_t session_id = 0;
  if (!ReadUintMember(msg, "session_id", session_id)) {
    LOG_AT(kFailure, "Failed to handle session ready event");
    return;
  }
  LOG_AT(kEveryLevel, "session_id received is %u", session_id);
  if (IsOpen(session_id)) {
    ReadyPairs(msg, session_id, ServiceId());
  }
}

}  // namespace orvd_client
