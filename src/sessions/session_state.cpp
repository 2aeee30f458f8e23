#include "sessions/session_state.h"

#include "base/log.h"
#include "link/service_id.h"
#include "registration/ready_table.h"

using namespace orvd_client;

int orvd_client::CallSessionState(int service_id, const SessionEvent& event,
                                  orvd_state_callback_t callback, void* user_data) {
  if (callback == nullptr) {
    return -1;
  }
  orvd_req_t req{};
  req.type = event.type;
  req.opcode = event.opcode;
  req.ssid = event.ssid;
  req.session_id = event.session_id;
  return callback(service_id, &req, user_data);
}

int inform_session_state(unsigned session_id, unsigned opcode, unsigned ssid,
                         orvd_state_callback_t callback, void* user_data, orvd_status_t type) {
  LOG_AT(kEveryLevel, "in inform_session_state");
  return CallSessionState(ServiceId(), {type, opcode, ssid, session_id}, callback, user_data);
}

int send_reconnection_notification() {
  const auto lowest = LowestReadyEntry();
  if (!lowest) {
    LOG_AT(kProgress, "No sessions due to no ready opcodes.");
    return 0;
  }
  // Deliberate: one call for the whole service, because the service initialises again as a whole.
  const auto& [opcode, entry] = *lowest;
  return inform_session_state(0, opcode, 0, entry.state_callback, entry.user_data,
                              ORVD_RECONNECTED);
}
