#include "base/json_members.h"

#include <cstdlib>

namespace orvd_client {

const Json::Value* FindMember(const Json::Value& object, std::string_view name) {
  return object.find(name.data(), name.data() + name.size());
}

std::string TextMember(const Json::Value& object, std::string_view name, const char* fallback) {
  const Json::Value* member = FindMember(object, name);
  return member != nullptr ? member->asString() : fallback;
}

int32_t IntMember(const Json::Value& object, std::string_view name, int32_t fallback) {
  const Json::Value* member = FindMember(object, name);
  return member != nullptr ? member->asInt() : fallback;
}

uint32_t UintMember(const Json::Value& object, std::string_view name) {
  const Json::Value* member = FindMember(object, name);
  return member != nullptr ? member->asUInt() : 0;
}

bool ReadUintMember(const Json::Value& object, std::string_view name, uint32_t& value) {
  const Json::Value* member = FindMember(object, name);
  if (member != nullptr && !member->isUInt()) {
    return false;
  }
  value = member != nullptr ? member->asUInt() : 0;
  return true;
}

const Json::Value& AsList(const Json::Value& value) {
  if (value.isObject() && !value.empty()) {
    return value[Json::ArrayIndex{0}];  // throws
  }
  return value;
}

bool IsEmptyList(const Json::Value& list) {
  return list.begin() == list.end();
}

const Json::Value& ListMember(const Json::Value& object, const char* name) {
  return AsList(object[name]);
}

uint32_t FromHex(const std::string& text) {
  return static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 16));
}

uint32_t FromDecimal(const std::string& text) {
  return static_cast<uint32_t>(std::stoll(text));
}

}  // namespace orvd_client
