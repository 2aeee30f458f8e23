#pragma once

#include <json/value.h>

// Parses one packet, up to its first NUL. False when it is not JSON or not an object. When a
// thousand levels are nested, jsoncpp throws, or aborts where it is built without exceptions.
bool ParseMessage(const char* packet, size_t size, Json::Value& message);
