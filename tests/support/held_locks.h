// Which locks of the library are held. The test executable's own pthread_mutex_lock stands before
// the C library's.

#pragma once

#include <pthread.h>

#include <functional>

// The mutex that `call` locks first.
pthread_mutex_t* FirstLockOf(const std::function<void()>& call);
bool IsHeld(pthread_mutex_t* mutex);
