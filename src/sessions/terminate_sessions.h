// Ends all sessions after the loss of the Manager.

#pragma once

#include "orvex_args.h"

// Ends every session, and sends nothing to the Manager. First it calls the callback of the lowest
// ready opcode with ORVD_TERMINATED (no lock held). Then it calls the callback of each pair with
// ORVD_SESSION_END (session mutex held). Returns 0 if at least one pair ended or if no opcode is
// ready, otherwise -1.
ORVD_EXPORT int terminate_sessions();
