#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace orvd {

// Parses `text`. Returns an empty object if `text` is not a JSON object, or if it is nested more
// than 1000 levels deep.
Json::Value ParseObject(const std::string& text);
// Parses any JSON value, strictly: no comments, no repeated members, nothing behind it. Returns
// nothing if `text` is not JSON, or if it is nested more than 1000 levels deep.
std::optional<Json::Value> ParseValue(const std::string& text);
// Writes `value` on one line, without blanks.
std::string WriteCompact(const Json::Value& value);

}  // namespace orvd
