// Stops the clock for single threads. The test executable defines usleep, clock_gettime and
// pthread_cond_clockwait, which replace the C library's.

#pragma once

#include <chrono>
#include <functional>

// Called in each pause and timed wait with its length. When it returns true, the wait ends by its
// time-out. When it returns false, a timed wait ends as if by a spurious wake-up.
using InPause = std::function<bool(std::chrono::nanoseconds)>;

// Stops the clock for the calling thread until the thread ends. Its pauses and timed waits return
// without waiting, and advance the clock by exactly their length if `in_pause` returns true.
// `in_pause` is called with the normal clock, and the mutex of a timed wait is unlocked meanwhile.
void FreezeClock(InPause in_pause = [](auto /*length*/) { return true; });
