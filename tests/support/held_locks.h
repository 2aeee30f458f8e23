// Shows which mutexes of the library are locked. The test executable defines pthread_mutex_lock,
// which replaces the C library's.

#pragma once

#include <pthread.h>

#include <functional>

// Returns the mutex that `call` locks first.
pthread_mutex_t* FirstLockOf(const std::function<void()>& call);
bool IsHeld(pthread_mutex_t* mutex);
