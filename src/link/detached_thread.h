#pragma once

// Starts a thread that nobody joins. Returns 0, or the system's error number. It is made detached rather than detached
// afterwards: a thread may be gone by then, and detaching one touches its memory.
int StartDetachedThread(void* (*run)(void*), void* argument);
