// What every part of the library asks about the link: who we are, and whether the Manager has
// answered.

#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>

#include "link/mutex.h"
#include "orvex_args.h"

inline constexpr int32_t kNotInitialised = -1;

// Never held while sending, waiting or calling the service.
extern Mutex gStateMutex;
extern int32_t gService_id GUARDED_BY(gStateMutex);
// The generation in which the Manager gave gService_id.
extern uint64_t gServiceGeneration GUARDED_BY(gStateMutex);

// gService_id, read under its mutex.
int32_t ServiceId();

// Whether `service_id` may act: 0, -2 for a foreign id, -3 when nothing is initialised. After 0,
// `generation` is the one in which the id was given: a caller that finds it over later has been
// deinitialised meanwhile, or is being deinitialised.
int CheckServiceId(uint32_t service_id, uint64_t& generation);

// The Manager has answered INIT with a valid id on the present connection.
extern std::atomic<bool> gMgrInitDone;

// The hand-over of the INIT answer.
extern Mutex gInitMutex;
extern ORVD_EXPORT std::condition_variable init_cv;
extern ORVD_EXPORT bool response_for_init GUARDED_BY(gInitMutex);
