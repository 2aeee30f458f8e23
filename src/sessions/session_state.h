// Calls to the service's session-state callbacks.

#pragma once

#include "orvd_types.h"

// One event of one pair.
struct SessionEvent {
  orvd_status_t type;
  uint32_t opcode;
  uint32_t ssid;
  uint32_t session_id;
};

// Calls `callback` with a record that holds only the event. Without a callback nobody agrees: -1.
int CallSessionState(int service_id, const SessionEvent& event, orvd_state_callback_t callback,
                     void* user_data);

// The same with the service id of the moment, and a log line. Any lock that the caller holds is
// held during the callback.
ORVD_EXPORT int inform_session_state(unsigned session_id, unsigned opcode, unsigned ssid,
                                     orvd_state_callback_t callback, void* user_data,
                                     orvd_status_t type);

// Tells the lowest ready opcode's callback that the Manager is back. Returns its result; 0 when
// nothing is ready.
ORVD_EXPORT int send_reconnection_notification();
