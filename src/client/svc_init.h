// INIT: the request for a service id, and its answer.

#pragma once

#include <json/value.h>

#include <condition_variable>

#include "base/mutex.h"
#include "client/dispatch.h"
#include "orvex_args.h"

namespace orvd_client {

// Stores the service id that the Manager gave, and wakes the thread that waits for it.
NextAction HandleInitAnswer(Json::Value& message);

extern Mutex gInitMutex;

}  // namespace orvd_client

// The receive thread hands the answer over to orvd_svc_init with these two.
extern ORVD_EXPORT std::condition_variable init_cv;
extern ORVD_EXPORT bool response_for_init GUARDED_BY(orvd_client::gInitMutex);
