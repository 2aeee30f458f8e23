// "start_session".

#pragma once

#include <json/value.h>

#include "orvex_args.h"

// Starts the pairs that the message lists, and sends the answer. Returns 0 if at least one pair
// started, otherwise -1. Runs on the receive thread. The start callbacks run with the session mutex
// held.
ORVD_EXPORT int handle_session_start(Json::Value& msg);
