#include <string>

#include "IOrvdClient.h"
#include "base/log.h"
#include "link/disconnect.h"
#include "link/send.h"
#include "link/service_id.h"
#include "link/socket_path.h"
#include "registration/ready_table.h"
#include "sessions/lost_sessions.h"

using namespace orvd_client;

namespace {

// The Manager may have closed the connection before the generation ends. The receive thread may
// have recorded that already, or it may not have read it yet.
void EndGeneration() {
  const ConnectionAndGeneration ended = CurrentConnection();
  BeginGeneration();
  if (ended.connection && ended.connection->PeerHasClosed()) {
    RecordLostSessions(ended.generation);
  }
}

// Sends nothing if the connection was not initialised, unless this process is the dedicated client.
// That connection stays open for the next initialisation.
void SendDeinitAndDisconnect(unsigned int svc_id) {
  if (!gMgrInitDone && !gDedicatedChannel) {
    return;
  }
  const std::string message = R"({"req_type":"DINT","Service_Id":)" + std::to_string(svc_id) + "}";
  if (orvd_send_to_manager_raw(message.c_str()) != 0) {
    LOG_AT(kFailure, "Failed to receive ORVEX deinit ack; proceeding anyways");
  }
  disconnect_from_manager();
  gMgrInitDone = false;
}

}  // namespace

int orvd_svc_deinit(unsigned int svc_id) {
  const int refusal = CheckServiceId(svc_id).result;
  if (refusal != 0) {
    return refusal;
  }
  AllowThisThreadToSend();
  EndGeneration();
  SendDeinitAndDisconnect(svc_id);
  supported_services_clear();
  ClearReadyTable();
  const MutexLock lock(gStateMutex);
  gService_id = kNotInitialised;
  LOG_AT(kEveryLevel, "gService_id is %d, svc_id is %d", gService_id, static_cast<int>(svc_id));
  return 0;
}
