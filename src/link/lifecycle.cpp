#include <cutils/properties.h>

#include <memory>
#include <string>
#include <utility>

#include "IOrvdClient.h"
#include "link/connection.h"
#include "link/dispatch.h"
#include "link/log.h"
#include "link/receive_thread.h"
#include "link/socket_path.h"
#include "link/state.h"
#include "sessions/lost_sessions.h"

const char deliminator[4] = "[],";

namespace {

constexpr const char* kMarkerName = "ORVEX_marker";

bool IsInitialised(int& service_id) {
  const MutexLock lock(gStateMutex);
  service_id = gService_id;
  if (service_id == kNotInitialised) {
    return false;
  }
  LOG_AT(kAlways, " Already initialized; return existing service id %d", service_id);
  return true;
}

// An established connection is used as it is. If an earlier receive thread still serves it, either
// thread may read the answer.
int ConnectAnew() {
  BeginGeneration();
  return connect_to_manager();
}

// The request goes on the connection that this call's receive thread serves, never on a later one,
// whose answers nobody would read. The answer may arrive before the send returns; the init mutex
// delays it until this thread waits.
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

// Ends the generation. Until then the receive thread may note that the Manager has closed the
// connection; it may also not have read that yet.
void EndGeneration() {
  const StandingConnection ended = CurrentConnection();
  BeginGeneration();
  if (ended.connection && ended.connection->PeerHasClosed()) {
    NoteLostSessions(ended.generation);
  }
}

// A connection without an initialisation gets no goodbye. It stays for the next initialisation.
void SayGoodbye(unsigned int svc_id) {
  if (!gMgrInitDone && !gDedicatedChannel) {
    return;
  }
  const std::string goodbye = R"({"req_type":"DINT","Service_Id":)" + std::to_string(svc_id) + "}";
  if (orvd_send_to_manager_raw(goodbye.c_str()) != 0) {
    LOG_AT(kFailure, "Failed to receive ORVEX deinit ack; proceeding anyways");
  }
  disconnect_from_manager();
  gMgrInitDone = false;
}

}  // namespace

int orvd_svc_init(void) {
  LOG_AT(kProgress, "ORVEX service init");
  int service_id = kNotInitialised;
  if (IsInitialised(service_id)) {
    return service_id;
  }
  gDebugLevel = property_get_int32("persist.vendor.orvex.clientlib.debug_level", 4);
  if (gMgrSocket_fd < 0 && ConnectAnew() != 0) {
    return -1;
  }
  ActForService();
  StandingConnection standing = CurrentConnection();
  return StartReceiveThread(standing) ? RequestServiceId(std::move(standing.connection)) : -1;
}

int orvd_svc_deinit(unsigned int svc_id) {
  const int refusal = CheckServiceId(svc_id).result;
  if (refusal != 0) {
    return refusal;
  }
  ActForService();
  EndGeneration();
  SayGoodbye(svc_id);
  ForgetRegistrations();
  const MutexLock lock(gStateMutex);
  gService_id = kNotInitialised;
  LOG_AT(kAlways, "gService_id is %d, svc_id is %d", gService_id, static_cast<int>(svc_id));
  return 0;
}

void orvd_log_marker(const char* text) {
  LOG_INFO("%s : %s : ", kMarkerName, text);
  if (gMarkersEnabled && orvd_send_to_manager_raw(text) != 0) {
    LOG_AT(kFailure, "Message was not sent successfully %s", kMarkerName);
  }
}
