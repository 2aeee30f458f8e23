// Calls the handler of each message.

#pragma once

#include <json/value.h>

namespace orvd_client {

// What the receive thread does after a message.
enum class NextAction { kContinue, kGrowBuffer, kEndThread };

// Handles one message by its "req_type". Logs a message of an unknown type, and continues.
NextAction Dispatch(Json::Value& message);

}  // namespace orvd_client
