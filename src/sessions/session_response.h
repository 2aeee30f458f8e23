#pragma once

#include <map>
#include <vector>

#include "orvex_args.h"

// Sends the answer to "start_session" or "end_session". `started` (opcode to subsystem ids) is
// shown by a successful start only. Returns 0, or -1 when it could not be sent.
ORVD_EXPORT int send_session_response(bool is_start, bool success, unsigned session_id,
                                      std::map<unsigned, std::vector<unsigned>>& started);
