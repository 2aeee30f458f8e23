#pragma once

#include <json/value.h>

// The Manager's answer to an info query or monitor.
void HandleInfoAnswer(const Json::Value& message);
