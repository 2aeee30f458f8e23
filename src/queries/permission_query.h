// PERMISSION: asks whether a client holds permissions.

#pragma once

#include <json/value.h>

namespace orvd_client {

// Handles the Manager's answer.
void HandlePermissionAnswer(const Json::Value& message);

}  // namespace orvd_client
