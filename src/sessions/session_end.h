#pragma once

#include <json/value.h>

#include "orvex_args.h"

// Ends the pairs that the Manager names, or the whole session when it names none, and answers.
// Returns 0 when at least one ended, else -1. Receive thread; the end callbacks run with the
// session mutex held.
ORVD_EXPORT int handle_session_end(Json::Value& msg);
