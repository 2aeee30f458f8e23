#include "link/service_id.h"

namespace orvd_client {

Mutex gStateMutex;
int32_t gService_id = kNotInitialised;
Generation gServiceGeneration = 0;

std::atomic<bool> gMgrInitDone{false};

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

bool SetInitDone(bool done) {
  const MutexLock lock(gLinkMutex);
  if (ThisThreadIsOutdated()) {
    return false;
  }
  gMgrInitDone = done;
  return true;
}

}  // namespace orvd_client
