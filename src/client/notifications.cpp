#include "client/notifications.h"

#include <cstdlib>
#include <string>

#include "base/json_members.h"
#include "base/log.h"
#include "registration/ready_table.h"

namespace orvd_client {

namespace {

void NotifyStateChange(const Json::Value& message, orvd_status_t type) {
  orvd_req_t req{};
  req.type = type;
  req.state = TextMember(message, "state", "null");
  req.session_id = UintMember(message, "session_id");
  req.state += ":" + TextMember(message, "value", "null");
  req.package = TextMember(message, "package", "null");
  LOG_AT(kDetail, "State change: %s, session_id: %d, package: %s, state: %s",
         TextMember(message, "req_type", "0").c_str(), static_cast<int>(req.session_id),
         req.package.c_str(), req.state.c_str());
  // Deliberate: the Manager writes "null" for a state that it does not know. The search finds
  // "null" anywhere in the combined text, so a state such as "nullable" is not forwarded either.
  if (req.state.find("null") == std::string::npos) {
    NotifyReadyOpcodes(req);
  }
}

}  // namespace

void HandlePermissionChange(const Json::Value& message) {
  orvd_req_t req{};
  req.type = ORVD_PERMISSION_CHANGE;
  // Deliberate: the Manager spells the name of this member so.
  const std::string session_id = TextMember(message, "sesson_id", "0");
  req.session_id = static_cast<uint32_t>(strtoul(session_id.c_str(), nullptr, 10));
  const std::string status = TextMember(message, "status", "0");
  req.status = strtol(status.c_str(), nullptr, 10) != 0 ? 1 : 0;
  req.permission = TextMember(message, "permission", "0");
  req.package = TextMember(message, "package", "null");
  LOG_AT(kDetail,
         "Req_type: %s Opcode: %d ssid: %d session_id: %d permission: %s package: %s status: %d",
         TextMember(message, "req_type", "0").c_str(), static_cast<int>(req.opcode),
         static_cast<int>(req.ssid), static_cast<int>(req.session_id), req.permission.c_str(),
         req.package.c_str(), req.status);
  NotifyReadyOpcodes(req);
}

void HandleStateChange(const Json::Value& message) {
  NotifyStateChange(message, ORVD_STATE_CHANGE);
}

void HandleSystemSettingChange(const Json::Value& message) {
  NotifyStateChange(message, ORVD_SYSTEM_SETTING_CHANGE);
}

}  // namespace orvd_client
