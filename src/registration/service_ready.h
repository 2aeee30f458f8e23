#pragma once

#include <json/value.h>

// The Manager's answer to a readiness request.
void HandleReadyAnswer(const Json::Value& message);
