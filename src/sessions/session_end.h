// "end_session".

#pragma once

#include <json/value.h>

#include "orvex_args.h"

// Ends the pairs that the message lists, or the whole session if it lists none, and sends the
// answer. Returns 0 if at least one pair ended, otherwise -1. Runs on the receive thread. The end
// callbacks run with the session mutex held.
ORVD_EXPORT int handle_session_end(Json::Value& msg);
