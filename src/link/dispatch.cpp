#include "link/dispatch.h"

#include <string>

#include "IOrvdClient.h"
#include "link/connection.h"
#include "link/json_members.h"
#include "link/log.h"
#include "link/notifications.h"
#include "link/state.h"
#include "queries/info_query.h"
#include "queries/permission_query.h"
#include "registration/ready_table.h"
#include "registration/register_auth.h"
#include "registration/service_ready.h"
#include "sessions/exec_task.h"
#include "sessions/session_end.h"
#include "sessions/session_ready.h"
#include "sessions/session_start.h"
#include "sessions/session_state.h"
#include "sessions/terminate_sessions.h"

namespace {

using Branch = NextAction (*)(Json::Value& message);

struct DispatchRow {
  std::string_view req_type;
  Branch handle;
};

template <auto Handle>
NextAction Then(Json::Value& message) {
  Handle(message);
  return NextAction::kContinue;
}

// Checked with the mutex held, so that the id is never set again behind a deinitialisation.
bool StoreServiceId(int32_t service_id) {
  const MutexLock lock(gStateMutex);
  if (ThisThreadIsOutdated()) {
    return false;
  }
  gService_id = service_id;
  gServiceGeneration = ServedGeneration();
  return true;
}

NextAction OnInit(Json::Value& message) {
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
  NoteInitDone(true);
  return NextAction::kContinue;
}

NextAction OnStartSession(Json::Value& message) {
  if (handle_session_start(message) != 0) {
    LOG_AT(kFailure, "Failed to handle session start event");
  }
  return NextAction::kGrowBuffer;
}

NextAction OnEndSession(Json::Value& message) {
  if (handle_session_end(message) != 0) {
    LOG_AT(kFailure, "Failed to handle end start event");
  }
  return NextAction::kContinue;
}

// Deliberate: hexadecimal here, as in the messages that open the session; decimal in the answers to
// registration and readiness, which repeat the number that this library sent.
int ExecTaskOf(Json::Value& message) {
  const auto entry = FindReadyEntry(FromHex(TextMember(message, "opcode", "0")));
  return entry ? handle_exec_task(message, entry->task_function) : -1;
}

NextAction OnExecTask(Json::Value& message) {
  if (ExecTaskOf(message) != 0) {
    LOG_AT(kFailure, "Failed to handle execute task event");
  }
  return NextAction::kContinue;
}

constexpr DispatchRow kDispatchTable[] = {
    {"INIT", OnInit},
    {"AUTH", Then<HandleAuthAnswer>},
    {"REGS", Then<HandlePlainRegistrationAnswer>},
    {"REDY", Then<HandleReadyAnswer>},
    {"exec_task", OnExecTask},
    {"start_session", OnStartSession},
    {"ready_session", Then<handle_session_ready>},
    {"end_session", OnEndSession},
    {"PERMISSION", Then<HandlePermissionAnswer>},
    {"INFO_QUERY", Then<HandleInfoAnswer>},
    {"INFO_MNTR", Then<HandleInfoAnswer>},
    {"permission_change", Then<HandlePermissionChange>},
    {"state_change", Then<HandleStateChange>},
    {"system_setting_change", Then<HandleSystemSettingChange>},
};

}  // namespace

NextAction Dispatch(Json::Value& message) {
  const std::string req_type = TextMember(message, "req_type", "0");
  for (const DispatchRow& row : kDispatchTable) {
    if (row.req_type == req_type) {
      return row.handle(message);
    }
  }
  LOG_AT(kFailure, "Unknown request type '%s'", req_type.c_str());
  return NextAction::kContinue;
}

void TellReadyOpcodes(orvd_req_t& notification) {
  NotifyReadyOpcodes(notification);
}

void EndAllSessions() {
  terminate_sessions();
}

void TellReconnected() {
  send_reconnection_notification();
}

void ForgetRegistrations() {
  supported_services_clear();
  ClearReadyTable();
}
