#pragma once

// Starts a thread that nobody joins. Returns 0, or the system's error number. It is made detached rather than detached
// afterwards: a thread may be gone by then, and detaching one touches its memory.
int StartDetachedThread(void* (*run)(void*), void* argument);

// The same with a stack of the device's usual size. On the host the default is eight times as large, and the C library
// keeps only a handful of such stacks for the next threads: every further one is mapped and unmapped again.
int StartDetachedTaskThread(void* (*run)(void*), void* argument);
