// Reads members of the Manager's messages without copying subtrees.
//
// If a value has the wrong kind, jsoncpp throws. A jsoncpp that is built without exceptions aborts
// instead. On the receive thread both end the process.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace orvd_client {

// Returns the member, or null if the object has no such member. `object` has the wrong kind if it
// is neither an object nor null.
const Json::Value* FindMember(const Json::Value& object, std::string_view name);

// Returns the member as jsoncpp converts it, or `fallback` (0 for UintMember) without such a
// member.
std::string TextMember(const Json::Value& object, std::string_view name, const char* fallback);
int32_t IntMember(const Json::Value& object, std::string_view name, int32_t fallback);
uint32_t UintMember(const Json::Value& object, std::string_view name);

// Reads an unsigned integer; a missing member counts as 0. Returns false, and does not change
// `value`, if the member is of another kind.
bool ReadUintMember(const Json::Value& object, std::string_view name, uint32_t& value);

// Returns `value` for iteration as a list. A scalar and an empty object count as an empty list. An
// object with members has the wrong kind.
const Json::Value& AsList(const Json::Value& value);
bool IsEmptyList(const Json::Value& list);
// Returns the member as a list. A missing member counts as an empty list.
const Json::Value& ListMember(const Json::Value& object, const char* name);

// Reads a hexadecimal number like strtoul. Returns 0 if the text does not begin with a number.
uint32_t FromHex(const std::string& text);
// Reads a decimal number of the unsigned 32-bit range; "-1" is the largest value. Reads the
// text with std::stoll, and throws its exceptions.
uint32_t FromDecimal(const std::string& text);

}  // namespace orvd_client
