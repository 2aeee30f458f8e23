// The connection generation.
//
// The generation is a number. It grows when the service deinitialises, and when it initialises with
// a new connection. Each receive thread serves the generation in which it was started. When that
// generation ends, the thread is outdated. An outdated thread finishes its current message, finds
// no ready opcode, and does not reconnect. It neither sends on a newer connection nor changes
// sessions or flags of a newer generation.

#pragma once

#include <cstdint>

#include "base/mutex.h"

namespace orvd_client {

using Generation = uint64_t;

// Guards changes of the generation and the current connection. Never held while the library sends,
// waits or calls the service.
extern Mutex gLinkMutex;

Generation CurrentGeneration();
// Ends the current generation and begins the next one.
void BeginGeneration();

// Makes the calling thread the receive thread of `generation`. A receive thread calls this once,
// when it starts.
void ServeGeneration(Generation generation);
// Returns the generation that this receive thread serves. On any other thread it returns the
// current generation.
Generation ServedGeneration();
// Returns whether this is a receive thread whose generation has ended.
bool ThisThreadIsOutdated();

// Allows this thread to send on the current connection, even if it is an outdated receive thread.
// The service may initialise and deinitialise in a callback.
void AllowThisThreadToSend();
// Returns false on an outdated receive thread, unless AllowThisThreadToSend() was called on it.
bool ThisThreadMaySend();

}  // namespace orvd_client
