// Records and callback types that the library and a service exchange.

#pragma once

#include <cstdint>
#include <string>

#include "orvex_args.h"

// The events that a session-state callback receives, and the lock that the library holds during the
// callback. A callback must not call a function that takes the same lock. "Threads and callbacks"
// in IOrvdClient.h has the rules.
enum orvd_status_t : int32_t {
  // The Manager has closed the connection. Only the callback of the ready opcode with the smallest
  // number is called. No lock. The library then ends all sessions, and tries to reconnect for 20
  // seconds. If no opcode is ready, no callback is called and no session ends, but the library
  // still tries to reconnect.
  //
  // The event does not occur if the Manager leaves messages of the service unread when it closes.
  // The connection is then reset: no session ends, and the library does not reconnect.
  ORVD_TERMINATED = 0,
  // The library has connected to the Manager again. The service must now deinitialise and
  // initialise. Only the callback of the ready opcode with the smallest number is called. No lock.
  ORVD_RECONNECTED = 1,
  // A pair of a session starts. Session lock.
  ORVD_SESSION_START = 2,
  // A pair of a session ends. Session lock.
  ORVD_SESSION_END = 3,
  // Notification: a permission is granted or withdrawn. The callbacks of all ready opcodes are
  // called. Ready-table lock.
  ORVD_PERMISSION_CHANGE = 4,
  // Notification: a state changes. The callbacks of all ready opcodes are called. Ready-table lock.
  ORVD_STATE_CHANGE = 5,
  // A pair of a session is ready for tasks. Session lock.
  ORVD_SESSION_READY = 6,
  // Notification: a system setting changes. The callbacks of all ready opcodes are called.
  // Ready-table lock.
  ORVD_SYSTEM_SETTING_CHANGE = 7,
};

// One event. The library owns the record and its texts, and destroys them after the callback.
// A field that the event does not use is 0 or empty.
struct orvd_req_t {
  orvd_status_t type;  // the event
  // Session events: the opcode of the pair. ORVD_TERMINATED and ORVD_RECONNECTED: the opcode whose
  // callback is called.
  uint32_t opcode;
  uint32_t ssid;        // session events: the subsystem id of the pair
  uint32_t session_id;  // session events and notifications: the session
  // ORVD_PERMISSION_CHANGE: the name of the permission. "0" if the Manager leaves it out.
  std::string permission;
  int32_t status;  // ORVD_PERMISSION_CHANGE: 1 granted, 0 withdrawn
  // ORVD_STATE_CHANGE and ORVD_SYSTEM_SETTING_CHANGE: "<name>:<value>". No callback is called if
  // this text contains "null" anywhere, or if the Manager leaves out the name or the value.
  std::string state;
  // Notifications: the package concerned. "null" if the Manager leaves it out.
  std::string package;
};

// Handles one event. The library calls it on the receive thread. `user_data` is the pointer given
// to _orvd_svc_ready.
// The callback must not change the event: a notification is the same record for all opcodes.
//
// Returns 0 to agree. Any other value has this effect:
//
//   ORVD_SESSION_START  the pair is not started
//   ORVD_SESSION_END    if the Manager ends single pairs: the pair stays in the session
//                       if the whole session ends, or all sessions end: no effect, the pair
//                       ends
//   other events        none
using orvd_state_callback_t = int (*)(int service_id, orvd_req_t* req, void* user_data);

// One task, from request to answer. The library allocates the record, sets the first four fields,
// and leaves the others 0 or empty. The task function sets these others. After it has returned, the
// library sends the answer and frees the record.
struct _orvex_call_info_t {
  uint32_t session_id;  // the session of the task; it can have ended meanwhile
  int32_t transac_id;   // the number of the request; -1 asks for the short answer
  uint32_t reserved;    // 0
  uint32_t subsys_id;   // the subsystem id of the task's pair
  std::string opcode;   // the answer's "opcode", for example "0x00001a3b"
  std::string name;     // the answer's "name": the name of the function
  // The members of the answer's "func", without the braces around them. The text "-1" alone means
  // failure: the answer's "func" is then empty, and the answer's "status" is -1. In this case the
  // library ignores the field `status` of this record.
  //
  // The short answer contains only the request type and `result`, as a text. This is also true if
  // `result` is "-1".
  std::string result;
  int32_t status;  // the answer's "status"
  int32_t ret;     // the answer's "return"
};

// Runs one task. The library calls it on a new thread with a stack of 1 MiB. Any number of tasks
// can run at the same time. The library does not use the return value.
//
// `call` is valid until the function returns.
// `args` is a copy, but its two queues are the library's. The library deletes them after the
// function has returned. The function must not delete them, and must not call ClearParamsFromQueues
// with `args`.
// The function must delete the member maps of struct arguments, see orvex_func_call_info_t.
using orvd_task_function_t = int (*)(_orvex_call_info_t* call, orvex_func_call_info_t args);
