#include "client/dispatch.h"

#include <string>
#include <string_view>

#include "base/json_members.h"
#include "base/log.h"
#include "client/notifications.h"
#include "client/svc_init.h"
#include "queries/info_query.h"
#include "queries/permission_query.h"
#include "registration/register_auth.h"
#include "registration/service_ready.h"
#include "sessions/exec_task.h"
#include "sessions/session_end.h"
#include "sessions/session_ready.h"
#include "sessions/session_start.h"

namespace orvd_client {

namespace {

using Handler = NextAction (*)(Json::Value& message);

struct DispatchRow {
  std::string_view req_type;
  Handler handle;
};

template <auto Handle>
NextAction ContinueAfter(Json::Value& message) {
  Handle(message);
  return NextAction::kContinue;
}

NextAction HandleStartSession(Json::Value& message) {
  if (handle_session_start(message) != 0) {
    LOG_AT(kFailure, "Failed to handle session start event");
  }
  return NextAction::kGrowBuffer;
}

void HandleEndSession(Json::Value& message) {
  if (handle_session_end(message) != 0) {
    LOG_AT(kFailure, "Failed to handle end start event");
  }
}

constexpr DispatchRow kDispatchTable[] = {
    {"INIT", HandleInitAnswer},
    {"AUTH", ContinueAfter<HandleAuthAnswer>},
    {"REGS", ContinueAfter<HandlePlainRegistrationAnswer>},
    {"REDY", ContinueAfter<HandleReadyAnswer>},
    {"exec_task", ContinueAfter<HandleExecTask>},
    {"start_session", HandleStartSession},
    {"ready_session", ContinueAfter<handle_session_ready>},
    {"end_session", ContinueAfter<HandleEndSession>},
    {"PERMISSION", ContinueAfter<HandlePermissionAnswer>},
    {"INFO_QUERY", ContinueAfter<HandleInfoAnswer>},
    {"INFO_MNTR", ContinueAfter<HandleInfoAnswer>},
    {"permission_change", ContinueAfter<HandlePermissionChange>},
    {"state_change", ContinueAfter<HandleStateChange>},
    {"system_setting_change", ContinueAfter<HandleSystemSettingChange>},
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

}  // namespace orvd_client
