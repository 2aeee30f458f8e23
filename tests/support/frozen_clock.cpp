#include "support/frozen_clock.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "support/real_function.h"

namespace {

constexpr int64_t kSecond = 1000000000;

thread_local int64_t frozen_ns = 0;  // 0: the clock is not frozen
thread_local InPause run_in_pause;

bool PauseUntil(int64_t end_ns) {
  const int64_t begin_ns = std::exchange(frozen_ns, 0);
  const bool is_over = run_in_pause(std::chrono::nanoseconds(end_ns - begin_ns));
  frozen_ns = is_over ? std::max(begin_ns, end_ns) : begin_ns;
  return is_over;
}

}  // namespace

void FreezeClock(InPause in_pause) {
  frozen_ns = std::chrono::steady_clock::now().time_since_epoch().count();
  run_in_pause = std::move(in_pause);
}

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static auto* const next = RealFunction(&clock_gettime, "clock_gettime");
  if (frozen_ns == 0 || clock != CLOCK_MONOTONIC) {
    return next(clock, now);
  }
  *now = {frozen_ns / kSecond, frozen_ns % kSecond};
  return 0;
}

int usleep(useconds_t time) {
  static auto* const next = RealFunction(&usleep, "usleep");
  return frozen_ns == 0 ? next(time) : (PauseUntil(frozen_ns + time * int64_t{1000}), 0);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* end) {
  static auto* const next = RealFunction(&pthread_cond_clockwait, "pthread_cond_clockwait");
  if (frozen_ns == 0) {
    return next(condition, mutex, clock, end);
  }
  pthread_mutex_unlock(mutex);
  const bool is_over = PauseUntil(end->tv_sec * kSecond + end->tv_nsec);
  pthread_mutex_lock(mutex);
  return is_over ? ETIMEDOUT : 0;
}

}  // extern "C"
