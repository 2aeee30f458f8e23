#pragma once

#include <json/value.h>

#include <string>

namespace orvd {

// Parses `text`. Returns an empty object if `text` is not a JSON object.
Json::Value ParseObject(const std::string& text);
// Writes `value` on one line, without blanks.
std::string WriteCompact(const Json::Value& value);

}  // namespace orvd
