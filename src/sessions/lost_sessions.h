// The sessions of a Manager that has closed its connection, and what a deinitialisation that comes
// meanwhile leaves of them.

#pragma once

#include "link/state.h"

// The connection of this generation is lost. If any opcode is ready, a later generation does not see
// the sessions of this generation and of earlier ones any more. Takes no session lock.
void NoteLostSessions(Generation generation);

// The last generation before `generation` that was noted; 0 when there is none.
Generation LostBefore(Generation generation);

// Removes, without a callback, what this receive thread's generation has lost.
void ForgetLostSessions();
