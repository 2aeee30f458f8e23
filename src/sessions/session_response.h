// The answers to "start_session" and "end_session".

#pragma once

#include <map>
#include <vector>

#include "orvex_args.h"

// Sends the answer to "start_session" or "end_session". Only the answer to a successful start
// contains `started` (opcode to subsystem ids). Returns 0, or -1 if the send failed.
ORVD_EXPORT int send_session_response(bool is_start, bool success, unsigned session_id,
                                      std::map<unsigned, std::vector<unsigned>>& started);
