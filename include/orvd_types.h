// Records and callback types that cross the boundary between the library and a service.

#pragma once

#include <cstdint>
#include <string>

#include "orvex_args.h"

// The event that a session-state callback is told of. Beside each: the locks that the library holds
// during the call. A callback must not call a function that takes one of them; see IOrvdClient.h.
enum orvd_status_t : int32_t {
  ORVD_TERMINATED = 0,  // the Manager has gone, all sessions end; lowest ready opcode only; no lock
  ORVD_RECONNECTED = 1,            // the Manager is back; lowest ready opcode only; no lock
  ORVD_SESSION_START = 2,          // session lock
  ORVD_SESSION_END = 3,            // session lock
  ORVD_PERMISSION_CHANGE = 4,      // ready-table lock
  ORVD_STATE_CHANGE = 5,           // ready-table lock
  ORVD_SESSION_READY = 6,          // session lock; the callback's result is ignored
  ORVD_SYSTEM_SETTING_CHANGE = 7,  // ready-table lock
};

// One event. The library owns the record and every text in it; they end with the call.
struct orvd_req_t {
  orvd_status_t type;  // which event; says which of the other fields count
  uint32_t opcode;  // sessions: the opcode of the pair; events 0 and 1: the opcode called; else 0
  uint32_t ssid;    // sessions: the subsystem id of the pair; else 0
  uint32_t session_id;     // 0 for events 0 and 1
  std::string permission;  // permission change: its name
  int32_t status;          // permission change: 1 granted, 0 withdrawn
  std::string state;       // state and system-setting change: "<state>:<value>"
  std::string package;     // notifications: the package concerned
};

// Called on the receive thread with the service id, the event, and the `user_data` given with the
// opcode. The event is to be read only: other opcodes' callbacks get the same record.
//
// Returns 0 to agree. Any other value refuses a start (the pair is not started) or the end of
// single pairs (the pair stays); when a whole session or all sessions end it is only counted; for
// all other events it is ignored.
using orvd_state_callback_t = int (*)(int service_id, orvd_req_t* req, void* user_data);

// One call of a task function, from request to answer. The library allocates it zero-filled, sets
// the first fields, sends the answer from the others when the task function returns, and frees it.
struct _orvex_call_info_t {
  uint32_t session_id;  // the task's session; it may have ended meanwhile
  int32_t transac_id;   // -1 asks for the short answer: request type and `result`
  uint32_t reserved;    // 0
  uint32_t subsys_id;   // the subsystem of the pair that the task is for
  std::string opcode;   // the service's: the opcode as the answer shows it
  std::string name;     // the service's: the function's name
  std::string
      result;  // the service's: members of the answer's "func", without braces; "-1" marks failure
  int32_t status;  // the service's: the answer's "status"
  int32_t ret;     // the service's: the answer's "return"
};

// Runs one task on a thread of its own with a stack of 1 MiB, any number at once. `call` lives
// until the answer is sent. `args` is a copy that shares its two maps with the library, which
// deletes them after the function returns: the function must not, neither itself nor by
// ClearParamsFromQueues. The member maps of struct arguments are the function's to delete (see
// orvex_args.h). The result is not used. An exception that leaves the function ends the process.
using orvd_task_function_t = int (*)(_orvex_call_info_t* call, orvex_func_call_info_t args);
