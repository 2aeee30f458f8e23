// "exec_task": runs a task.

#pragma once

#include <json/value.h>

#include "orvd_types.h"

namespace orvd_client {

// Handles the message: looks up the task function of the opcode, and calls handle_exec_task.
void HandleExecTask(Json::Value& message);

}  // namespace orvd_client

// Starts one task on a new detached thread. Returns 0. Returns -1, and sends no answer, if the pair
// is not ready in the session, if `task` is null, or if the arguments cannot be decoded. Runs on
// the receive thread.
ORVD_EXPORT int handle_exec_task(Json::Value& msg, orvd_task_function_t task);

// Runs on the task thread: calls `task`, frees the arguments, sends the answer, frees the call
// record.
ORVD_EXPORT void calling_wrapper(_orvex_call_info_t* call, orvd_task_function_t task,
                                 orvex_func_call_info_t args);
