// The Manager's notifications, passed on to every ready opcode.

#pragma once

#include <json/value.h>

void HandlePermissionChange(const Json::Value& message);
void HandleStateChange(const Json::Value& message);
void HandleSystemSettingChange(const Json::Value& message);
