// The service id that the Manager gave, and whether the Manager has answered INIT.

#pragma once

#include <atomic>
#include <cstdint>

#include "base/mutex.h"
#include "link/generation.h"

namespace orvd_client {

inline constexpr int32_t kNotInitialised = -1;

// Never held while the library sends, waits or calls the service.
extern Mutex gStateMutex;
extern int32_t gService_id GUARDED_BY(gStateMutex);
// The generation in which the Manager gave gService_id.
extern Generation gServiceGeneration GUARDED_BY(gStateMutex);

// Reads gService_id under its mutex.
int32_t ServiceId();

struct ServiceIdCheck {
  int result;             // 0; -2: wrong service id; -3: not initialised
  Generation generation;  // of the service id; once it has ended, the caller must not act
};
// Checks whether the caller may act with `service_id`.
ServiceIdCheck CheckServiceId(uint32_t service_id);

// Whether the Manager has answered INIT with a valid id on the present connection.
extern std::atomic<bool> gMgrInitDone;
// Sets gMgrInitDone. Returns false, and changes nothing, on an outdated receive thread.
bool SetInitDone(bool done);

}  // namespace orvd_client
