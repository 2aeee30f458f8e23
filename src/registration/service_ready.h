// REDY: declares an opcode ready.

#pragma once

#include <json/value.h>

namespace orvd_client {

// Handles the Manager's answer.
void HandleReadyAnswer(const Json::Value& message);

}  // namespace orvd_client
