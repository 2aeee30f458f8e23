#include "support/held_locks.h"

#include <utility>

#include "support/real_function.h"

// Receives the mutex that this thread locks next.
static thread_local pthread_mutex_t** note_next_lock = nullptr;

pthread_mutex_t* FirstLockOf(const std::function<void()>& call) {
  pthread_mutex_t* first = nullptr;
  note_next_lock = &first;
  call();
  return first;
}

bool IsHeld(pthread_mutex_t* mutex) {
  return pthread_mutex_trylock(mutex) != 0 || pthread_mutex_unlock(mutex) != 0;
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const next = RealFunction(&pthread_mutex_lock, "pthread_mutex_lock");
  if (note_next_lock != nullptr) {
    *std::exchange(note_next_lock, nullptr) = mutex;
  }
  return next(mutex);
}
