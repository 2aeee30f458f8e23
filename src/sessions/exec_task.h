// Tasks: from the Manager's request to the answer.

#pragma once

#include <json/value.h>

#include "orvd_types.h"

// Starts one task on a detached thread of its own. Returns 0, or -1 when the pair is not ready in
// the session or the arguments cannot be decoded; the Manager is then told nothing. Receive thread.
ORVD_EXPORT int handle_exec_task(Json::Value& msg, orvd_task_function_t task);

// The life of a task thread: runs the task, releases the arguments, answers, frees the call record.
ORVD_EXPORT void calling_wrapper(_orvex_call_info_t* call, orvd_task_function_t task,
                                 orvex_func_call_info_t args);
