// Calls the service's session-state callbacks.

#pragma once

#include "orvd_types.h"

namespace orvd_client {

// One event of one pair.
struct SessionEvent {
  orvd_status_t type;
  uint32_t opcode;
  uint32_t ssid;
  uint32_t session_id;
};

// Calls `callback` with a record that contains only the event, and returns its result. Returns -1
// without a callback.
int CallSessionState(int service_id, const SessionEvent& event, orvd_state_callback_t callback,
                     void* user_data);

}  // namespace orvd_client

// Calls `callback` with the current service id, and logs a line. The caller's locks are held during
// the callback.
ORVD_EXPORT int inform_session_state(unsigned session_id, unsigned opcode, unsigned ssid,
                                     orvd_state_callback_t callback, void* user_data,
                                     orvd_status_t type);

// Calls the callback of the lowest ready opcode with ORVD_RECONNECTED. Returns its result, or 0 if
// no opcode is ready.
ORVD_EXPORT int send_reconnection_notification();
