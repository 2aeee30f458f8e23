#pragma once

namespace orvd_client {

// Starts a detached thread. Returns 0, or the error number of the system. The thread is created
// detached: after its start it may have ended, and pthread_detach would then access freed memory.
int StartDetachedThread(void* (*run)(void*), void* argument);

// The same with a stack of 1 MiB, the device's default. The host's default is eight times as large,
// and glibc caches only a few stacks of that size: it maps and unmaps the memory of all others.
int StartDetachedTaskThread(void* (*run)(void*), void* argument);

}  // namespace orvd_client
