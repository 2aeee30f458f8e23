#include "client/svc_init.h"

#include <cutils/properties.h>

#include <memory>
#include <utility>

#include "IOrvdClient.h"
#include "base/json_members.h"
#include "base/log.h"
#include "client/receive_thread.h"
#include "link/connect.h"
#include "link/send.h"
#include "link/service_id.h"

using namespace orvd_client;

Mutex orvd_client::gInitMutex;

bool response_for_init = false;

// init_cv is exported as a plain object, but it must not be destroyed at exit: the destructor of a
// condition variable waits for its waiters. A union does not destroy its member. The alias gives
// the member its exported name.
extern "C" {
union orvex_immortal_cv {
  orvex_immortal_cv() : cv() {}
  ~orvex_immortal_cv() {}  // NOLINT(modernize-use-equals-default): that would be deleted
  std::condition_variable cv;
};
orvex_immortal_cv orvex_init_cv_storage;
}
extern std::condition_variable init_cv __attribute__((alias("orvex_init_cv_storage")));

namespace {

bool IsInitialised(int& service_id) {
  const MutexLock lock(gStateMutex);
  service_id = gService_id;
  if (service_id == kNotInitialised) {
    return false;
  }
  LOG_AT(kEveryLevel, " Already initialized; return existing service id %d", service_id);
  return true;
}

// An established connection is not replaced. If an earlier receive thread still serves it, either
// thread may read the answer.
int ConnectInNewGeneration() {
  BeginGeneration();
  return connect_to_manager();
}

// Sends the request on the connection that this call's receive thread serves. No thread would read
// the answer on a later connection. The answer can arrive before the send returns; the receive
// thread then blocks on the init mutex until this thread waits.
int RequestServiceId(std::shared_ptr<Connection> connection) {
  MutexLock init_lock(gInitMutex);
  if (SendOn(std::move(connection), R"({"req_type":"INIT"})") != 0) {
    LOG_AT(kFailure, "Failed to initiate communication with server");
    return -1;
  }
  while (!response_for_init) {
    init_cv.wait(init_lock.native());
  }
  response_for_init = false;
  const MutexLock state_lock(gStateMutex);
  if (gService_id < 0) {
    LOG_AT(kFailure, "Failed to initialize with manager");
  } else {
    LOG_AT(kProgress, "ORVEX initialized; svc id %d", gService_id);
  }
  return gService_id;
}

// The generation is checked with the mutex held, so that the id is not set again after a
// deinitialisation.
bool StoreServiceId(int32_t service_id) {
  const MutexLock lock(gStateMutex);
  if (ThisThreadIsOutdated()) {
    return false;
  }
  gService_id = service_id;
  gServiceGeneration = ServedGeneration();
  return true;
}

}  // namespace

NextAction orvd_client::HandleInitAnswer(Json::Value& message) {
  const int32_t service_id = IntMember(message, "service_id", kNotInitialised);
  if (!StoreServiceId(service_id)) {
    return NextAction::kEndThread;
  }
  const MutexLock lock(gInitMutex);
  response_for_init = true;
  init_cv.notify_one();
  if (service_id < 0) {
    return NextAction::kEndThread;
  }
  SetInitDone(true);
  return NextAction::kContinue;
}

int orvd_svc_init(void) {
  LOG_AT(kProgress, "ORVEX service init");
  int service_id = kNotInitialised;
  if (IsInitialised(service_id)) {
    return service_id;
  }
  gDebugLevel = property_get_int32("persist.vendor.orvex.clientlib.debug_level", 4);
  if (gMgrSocket_fd < 0 && ConnectInNewGeneration() != 0) {
    return -1;
  }
  AllowThisThreadToSend();
  ConnectionAndGeneration current = CurrentConnection();
  return StartReceiveThread(current) ? RequestServiceId(std::move(current.connection)) : -1;
}
