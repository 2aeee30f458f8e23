#pragma once

#include <json/value.h>

#include <string>

namespace orvd {

// The object that `text` is, or an empty one.
Json::Value ParseObject(const std::string& text);
// On one line, without blanks.
std::string WriteCompact(const Json::Value& value);

}  // namespace orvd
