// A clock that stands still, on the threads that ask for one. The test executable's own usleep,
// clock_gettime and pthread_cond_clockwait stand before the C library's.

#pragma once

#include <chrono>
#include <functional>

// Called in each pause and timed wait, with its length; returns whether the time is up. Otherwise a
// timed wait ends as if by a spurious wake-up.
using InPause = std::function<bool(std::chrono::nanoseconds)>;

// On the calling thread, until it ends: only its own pauses and time-outs move the clock, so that
// they are exact, and none of them is waited for. `in_pause` runs with no lock held and the clock
// going.
void FreezeClock(InPause in_pause = [](auto /*length*/) { return true; });
