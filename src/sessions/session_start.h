#pragma once

#include <json/value.h>

#include "orvex_args.h"

// Starts the pairs that the Manager asks for, and answers. Returns 0 when at least one started,
// else -1. Receive thread; the start callbacks run with the session mutex held.
ORVD_EXPORT int handle_session_start(Json::Value& msg);
