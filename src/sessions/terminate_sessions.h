#pragma once

#include "orvex_args.h"

// Ends every session without a word to the Manager: tells the lowest ready opcode that all end (no
// lock held), then every pair (session mutex held). Returns 0 when at least one pair ended or
// nothing is ready, else -1.
ORVD_EXPORT int terminate_sessions();
