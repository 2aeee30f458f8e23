#include "support/taken_args.h"

#include <gtest/gtest.h>
#include <json/json.h>

namespace {

using Holder = std::shared_ptr<ValuesInterface>;

template <typename T>
Json::Value HeldAsJson(const Holder& holder) {
  return static_cast<const ParamValues<T>&>(*holder).value;
}

template <typename T>
Json::Value ListAsJson(const Holder& holder) {
  Json::Value list(Json::arrayValue);
  for (const auto& element : static_cast<const ParamValues<std::vector<T>>&>(*holder).value) {
    list.append(element);
  }
  return list;
}

template <typename... TypesByCode>
std::string RenderAs(int code, const Holder& holder) {
  constexpr Json::Value (*kRead[])(const Holder&) = {HeldAsJson<TypesByCode>..., nullptr, nullptr,
                                                     nullptr, ListAsJson<TypesByCode>...};
  Json::StreamWriterBuilder compact;
  compact["indentation"] = "";
  return Json::writeString(compact, kRead[code - 1](holder));
}
constexpr auto Render = RenderAs<uint8_t, uint16_t, uint32_t, uint64_t, int8_t, int16_t, int32_t,
                                 int64_t, double, std::string, bool, int32_t, std::string>;

}  // namespace

std::string TakeArgs(const orvex_typed_map_t* typed, const orvex_value_map_t* values) {
  if (typed == nullptr || values == nullptr || typed->size() != values->size()) {
    return typed == nullptr && values == nullptr ? "null" : "queues differ";
  }
  std::string text;
  for (const auto& [key, entry] : *typed) {
    const auto& [code, holder] = entry;
    const Holder& value = values->at(key);
    text += (text.empty() ? "" : " ") + std::to_string(key) + ":" + std::to_string(code) + "=";
    EXPECT_EQ(holder == value, code != ORVEX_STRUCT) << text;
    EXPECT_EQ(holder.use_count(), code != ORVEX_STRUCT ? 2 : 1) << text;
    if (code != ORVEX_STRUCT) {
      text += Render(code, holder);
      continue;
    }
    const auto* members = static_cast<ParamValues<orvex_typed_map_t*>&>(*holder).value;
    const auto* member_values = static_cast<ParamValues<orvex_value_map_t*>&>(*value).value;
    text += "{" + TakeArgs(members, member_values) + "}";
    delete members;
    delete member_values;
  }
  return text;
}
