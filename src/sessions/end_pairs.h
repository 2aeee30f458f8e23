// What ending a session and terminating all of them have in common.

#pragma once

#include "registration/ready_table.h"
#include "sessions/session_table.h"

struct EndCount {
  int ended = 0;
  int failed = 0;
};

// Tells the service that the pair ends, and counts the outcome. Whether the service agreed.
bool InformEnd(uint32_t session_id, const SessionPair& pair, const ReadyEntry& entry,
               EndCount& count) REQUIRES(Sessions().mutex);

// The same, with a line for the pair.
bool TerminatePair(uint32_t session_id, const SessionPair& pair, const ReadyEntry& entry,
                   EndCount& count) REQUIRES(Sessions().mutex);

void LogEnded(uint32_t session_id, const EndCount& count);
