// Forwards the Manager's notifications to every ready opcode.

#pragma once

#include <json/value.h>

namespace orvd_client {

void HandlePermissionChange(const Json::Value& message);
void HandleStateChange(const Json::Value& message);
void HandleSystemSettingChange(const Json::Value& message);

}  // namespace orvd_client
