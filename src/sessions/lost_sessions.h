// Lost sessions: the Manager of these sessions has closed its connection. They must end even if the
// service deinitialises before the receive thread has ended them.

#pragma once

#include "link/generation.h"

namespace orvd_client {

// Records that the connection of `generation` is lost. If any opcode is ready, later generations no
// longer see the sessions of this generation and of earlier ones. Does not lock the session mutex.
void RecordLostSessions(Generation generation);

// Returns the last recorded generation before `generation`; 0 without one.
Generation LostBefore(Generation generation);

// Removes the lost sessions of this receive thread's generation and of earlier ones, without a
// callback.
void RemoveLostSessions();

}  // namespace orvd_client
