// What every part of the library asks about the link: who we are, and whether the Manager has
// answered.

#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>

#include "link/mutex.h"
#include "orvex_args.h"

inline constexpr int32_t kNotInitialised = -1;

// A number that grows whenever the service deinitialises, and whenever it initialises with a new
// connection. What began in one generation is not continued in a later one.
using Generation = uint64_t;

// Never held while sending, waiting or calling the service.
extern Mutex gStateMutex;
extern int32_t gService_id GUARDED_BY(gStateMutex);
// The generation in which the Manager gave gService_id.
extern Generation gServiceGeneration GUARDED_BY(gStateMutex);

// gService_id, read under its mutex.
int32_t ServiceId();

struct ServiceIdCheck {
  int result;             // 0; -2 for a foreign id; -3 when nothing is initialised
  Generation generation;  // in which the id was given; once it is over, the caller must not act
};
// Whether the caller may act as `service_id`.
ServiceIdCheck CheckServiceId(uint32_t service_id);

// The Manager has answered INIT with a valid id on the present connection.
extern std::atomic<bool> gMgrInitDone;

// The hand-over of the INIT answer.
extern Mutex gInitMutex;
extern ORVD_EXPORT std::condition_variable init_cv;
extern ORVD_EXPORT bool response_for_init GUARDED_BY(gInitMutex);
