#include "sessions/session_start.h"

#include <map>
#include <vector>

#include "IOrvdClient.h"
#include "base/log.h"
#include "link/service_id.h"
#include "sessions/opcode_walk.h"
#include "sessions/session_response.h"
#include "sessions/session_state.h"
#include "sessions/session_table.h"

using namespace orvd_client;

namespace {

struct StartRequest {
  uint32_t session_id;
  int service_id;
  int started = 0;
  int failed = 0;
  int duplicate = 0;
  std::map<unsigned, std::vector<unsigned>> started_pairs{};
};

void OpenSession(uint32_t session_id) {
  const MutexLock lock(Sessions().mutex);
  if (FindSession(session_id) == nullptr) {
    LOG_AT(kProgress, "Trying to create new session %u", session_id);
  }
  FindOrOpenSession(session_id);
}

void StartAbsentPair(StartRequest& request, SessionPairs& pairs, const SessionPair& pair,
                     const ReadyEntry& entry) {
  const auto [opcode, ssid] = pair;
  const SessionEvent event{ORVD_SESSION_START, opcode, ssid, request.session_id};
  if (CallSessionState(request.service_id, event, entry.state_callback, entry.user_data) != 0) {
    LOG_AT(kWarning, "Session %u with 0x%08x::%u failed", request.session_id, opcode, ssid);
    ++request.failed;
    return;
  }
  pairs.emplace(pair, ORVD_STARTED);
  request.started_pairs[opcode].push_back(ssid);
  LOG_AT(kProgress, "Session %u with 0x%08x::%u success", request.session_id, opcode, ssid);
  ++request.started;
}

void StartSupportedPair(StartRequest& request, const SessionPair& pair, const ReadyEntry& entry) {
  const MutexLock lock(Sessions().mutex);
  if (ThisThreadIsOutdated()) {
    ++request.failed;  // the service has deinitialised
    return;
  }
  SessionPairs* pairs = FindOrOpenSession(request.session_id);
  const orvd_start_state* state = FindPair(pairs, pair);
  if (state == nullptr) {
    StartAbsentPair(request, *pairs, pair, entry);
  } else if (*state == ORVD_READY) {
    LOG_AT(kWarning, "Session %u with 0x%08x::%u already active", request.session_id, pair.first,
           pair.second);
    ++request.duplicate;
  } else {
    // Deliberate: a second start removes a pair that never became ready, without a callback. A
    // third start then starts the pair again.
    LOG_AT(kWarning, "Session %u with 0x%08x::%u never received ready_session. Resetting",
           request.session_id, pair.first, pair.second);
    pairs->erase(pair);
    ++request.failed;
  }
}

void StartPair(StartRequest& request, const SessionPair& pair, const ReadyEntry& entry) {
  const auto [opcode, ssid] = pair;
  LOG_AT(kProgress, "Trying to start session %u with 0x%08x::%u", request.session_id, opcode, ssid);
  if (!is_service_supported(opcode, ssid)) {
    LOG_AT(kFailure, "Service does not support requested 0x%08x::%u", opcode, ssid);
    ++request.failed;
    return;
  }
  StartSupportedPair(request, pair, entry);
}

void AnswerStart(StartRequest& request) {
  if (send_session_response(true, request.started >= 1, request.session_id,
                            request.started_pairs) != 0) {
    LOG_AT(kFailure, "Failed to send start session response to ORVEX Manager");
  }
  LOG_AT(kProgress, "Start session %u with %d service (%d failed; %d duplicate)",
         request.session_id, request.started, request.failed, request.duplicate);
}

}  // namespace

int handle_session_start(Json::Value& msg) {
  uint32_t session_id = 0;
  if (!ReadUintMember(msg, "session_id", session_id)) {
    return -1;
  }
  LOG_AT(kEveryLevel, "session_id received is %u", session_id);
  OpenSession(session_id);
  StartRequest request{session_id, ServiceId()};
  WalkOpcodes(msg, ReadHexOpcode, [&](uint32_t opcode, const ReadyEntry& entry, uint32_t ssid) {
    StartPair(request, {opcode, ssid}, entry);
  });
  AnswerStart(request);
  return request.started > 0 ? 0 : -1;
}
