#include "link/state.h"

Mutex gStateMutex;
int32_t gService_id = kNotInitialised;
Generation gServiceGeneration = 0;

std::atomic<bool> gMgrInitDone{false};

Mutex gInitMutex;
bool response_for_init = false;

// init_cv is exported as a plain object, yet must not be destroyed at exit: the destructor of a
// condition variable waits for its waiters. A union leaves its member alone; the alias gives it its
// name.
extern "C" {
union orvex_immortal_cv {
  orvex_immortal_cv() : cv() {}
  ~orvex_immortal_cv() {}  // NOLINT(modernize-use-equals-default): that would be deleted
  std::condition_variable cv;
};
orvex_immortal_cv orvex_init_cv_storage;
}
extern std::condition_variable init_cv __attribute__((alias("orvex_init_cv_storage")));

int32_t ServiceId() {
  const MutexLock lock(gStateMutex);
  return gService_id;
}

ServiceIdCheck CheckServiceId(uint32_t service_id) {
  const MutexLock lock(gStateMutex);
  if (gService_id == kNotInitialised) {
    return {-3, gServiceGeneration};
  }
  const bool own = static_cast<uint32_t>(gService_id) == service_id;
  return {own ? 0 : -2, gServiceGeneration};
}
