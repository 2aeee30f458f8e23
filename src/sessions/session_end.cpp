#include "sessions/session_end.h"

#include <map>
#include <vector>

#include "base/json_members.h"
#include "base/log.h"
#include "sessions/end_pairs.h"
#include "sessions/opcode_walk.h"
#include "sessions/session_response.h"
#include "sessions/session_state.h"
#include "sessions/session_table.h"

using namespace orvd_client;

namespace {

void AnswerEnd(uint32_t session_id, const EndCount& count) {
  std::map<unsigned, std::vector<unsigned>> none;
  if (send_session_response(false, count.ended >= 1, session_id, none) != 0) {
    LOG_AT(kFailure, "Failed to send end session response to ORVEX Manager");
  }
  LogEnded(session_id, count);
}

// Sends the answer itself if the session is not open, and then returns false.
bool CheckOpenOrAnswer(uint32_t session_id) {
  const MutexLock lock(Sessions().mutex);
  if (FindSession(session_id) != nullptr) {
    return true;
  }
  LOG_AT(kWarning, "Session %u is not active; ignoring", session_id);
  // Deliberate: the answer is sent with the mutex held, so it precedes every session event that
  // waits for the mutex.
  AnswerEnd(session_id, {});
  return false;
}

// Deliberate: the opcode is a JSON number here, as the Manager sends it. It is hexadecimal text in
// the messages that start and ready sessions. Any other kind, or a missing id, stops the request
// without an answer; the pairs that have ended before it stay ended.
bool ReadNumericOpcode(const Json::Value& element, uint32_t& opcode) {
  const Json::Value* id = FindMember(element, "id");
  if (id == nullptr || !id->isUInt()) {
    return false;
  }
  opcode = id->asUInt();
  return true;
}

void EndPair(uint32_t session_id, const SessionPair& pair, const ReadyEntry& entry,
             EndCount& count) {
  const auto [opcode, ssid] = pair;
  LOG_AT(kProgress, "Trying to end session %u with 0x%08x::%u", session_id, opcode, ssid);
  const MutexLock lock(Sessions().mutex);
  SessionPairs* pairs = FindOrOpenSession(session_id);
  if (FindPair(pairs, pair) == nullptr) {
    LOG_AT(kWarning, "Session %u with 0x%08x::%u is not active; ignoring", session_id, opcode,
           ssid);
    ++count.failed;
  } else if (CallEndCallbackAndLog(session_id, pair, entry, count)) {
    pairs->erase(pair);
  }
}

void EndWholeSession(uint32_t session_id, EndCount& count) {
  const MutexLock lock(Sessions().mutex);
  SessionPairs* pairs = FindOrOpenSession(session_id);
  if (pairs == nullptr) {
    return;
  }
  for (const auto& [pair, state] : *pairs) {
    const auto entry = FindReadyEntry(pair.first);
    if (entry) {
      CallEndCallback(session_id, pair, *entry, count);
    }
  }
  pairs->clear();
}

void RemoveEmptySession(uint32_t session_id) {
  const MutexLock lock(Sessions().mutex);
  const SessionPairs* pairs = FindSession(session_id);
  if (pairs != nullptr && pairs->empty()) {
    LOG_AT(kProgress, "Session %u completely ended", session_id);
    Sessions().sessions.erase(session_id);
  }
}

}  // namespace

int handle_session_end(Json::Value& msg) {
  const uint32_t session_id = UintMember(msg, "session_id");
  if (!CheckOpenOrAnswer(session_id)) {
    return -1;
  }
  EndCount count;
  const bool readable = WalkOpcodes(msg, ReadNumericOpcode,
                                    [&](uint32_t opcode, const ReadyEntry& entry, uint32_t ssid) {
                                      EndPair(session_id, {opcode, ssid}, entry, count);
                                    });
  if (!readable) {
    return -1;
  }
  if (IsEmptyList(ListMember(msg, "opcodes"))) {
    EndWholeSession(session_id, count);
  }
  RemoveEmptySession(session_id);
  AnswerEnd(session_id, count);
  return count.ended >= 1 ? 0 : -1;
}
