#pragma once

#include <json/value.h>

// Parses one packet, up to its first NUL. False when it is not JSON or not an object. Throws
// Json::RuntimeError for nesting of a thousand levels.
bool ParseMessage(const char* packet, size_t size, Json::Value& message);
