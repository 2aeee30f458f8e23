#pragma once

#include <json/value.h>

// The Manager's answer to a permission query.
void HandlePermissionAnswer(const Json::Value& message);
