// Wraps std::mutex with clang's thread-safety annotations.

#pragma once

#include <mutex>

#if defined(__clang__)
#define ORVEX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ORVEX_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) ORVEX_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY ORVEX_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) ORVEX_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) ORVEX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) ORVEX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) ORVEX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ORVEX_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace orvd_client {

// Never destroyed, even as a global: the library's threads may lock it while the process exits, and
// the device's C library aborts on a destroyed mutex. A union does not destroy its member.
class CAPABILITY("mutex") Mutex {
 public:
  constexpr Mutex() : mutex_() {}
  ~Mutex() {}  // NOLINT(modernize-use-equals-default): that would be deleted
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  std::mutex& native() { return mutex_; }

 private:
  union {
    std::mutex mutex_;
  };
};

class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : lock_(mutex.native()) {}
  ~MutexLock() RELEASE() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // For condition variables.
  std::unique_lock<std::mutex>& native() { return lock_; }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace orvd_client
