// Reads members of the Manager's messages without copying subtrees.
//
// A value of the wrong kind makes jsoncpp throw, or abort where jsoncpp is built without exceptions.
// On the receive thread both end the process.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <string_view>

// The member, or null when the object has none. As with jsoncpp's own access, anything but an
// object or null is of the wrong kind.
const Json::Value* FindMember(const Json::Value& object, std::string_view name);

// The member converted as jsoncpp converts, or `fallback` when there is no such member.
std::string TextMember(const Json::Value& object, std::string_view name, const char* fallback);
int32_t IntMember(const Json::Value& object, std::string_view name, int32_t fallback);
uint32_t UintMember(const Json::Value& object, std::string_view name);

// Whether the member is an unsigned integer or missing, which counts as 0; `value` is set when it
// is.
bool ReadUintMember(const Json::Value& object, std::string_view name, uint32_t& value);

// `value` as a list to walk: a scalar is an empty one, an object is of the wrong kind unless it is
// empty.
const Json::Value& AsList(const Json::Value& value);
bool IsEmptyList(const Json::Value& list);
// The member as a list; a missing one is empty.
const Json::Value& ListMember(const Json::Value& object, const char* name);

// Numbers that travel as text. Hexadecimal text that is no number is 0.
uint32_t FromHex(const std::string& text);
// Decimal text of the whole unsigned 32-bit range, "-1" being its largest value. Throws the
// standard library's exceptions for text that is no number.
uint32_t FromDecimal(const std::string& text);
