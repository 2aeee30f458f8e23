#pragma once

#include <json/value.h>

namespace orvd_client {

// Parses one packet up to its first NUL. Returns false if the text is not a JSON object. At a
// thousand nested levels jsoncpp throws. A jsoncpp that is built without exceptions aborts instead.
bool ParseMessage(const char* packet, size_t size, Json::Value& message);

}  // namespace orvd_client
