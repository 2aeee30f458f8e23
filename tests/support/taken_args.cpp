#include "support/taken_args.h"

#include <json/json.h>

#include <array>
#include <stdexcept>

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
  constexpr std::array<Json::Value (*)(const Holder&), ORVEX_STRUCT + sizeof...(TypesByCode)> kRead{
      HeldAsJson<TypesByCode>..., nullptr, nullptr, nullptr, ListAsJson<TypesByCode>...};
  Json::StreamWriterBuilder compact;
  compact["indentation"] = "";
  return Json::writeString(compact, kRead.at(static_cast<size_t>(code - 1))(holder));
}
constexpr auto Render = RenderAs<uint8_t, uint16_t, uint32_t, uint64_t, int8_t, int16_t, int32_t,
                                 int64_t, double, std::string, bool, int32_t, std::string>;

void Require(bool holds, const char* what) {
  if (!holds) {
    throw std::logic_error(what);
  }
}

}  // namespace

std::string TakeArgs(const orvex_typed_map_t* typed, const orvex_value_map_t* values) {
  if (typed == nullptr && values == nullptr) {
    return "null";
  }
  Require(typed != nullptr && values != nullptr && typed->size() == values->size(), "both queues");
  std::string text;
  for (const auto& [key, entry] : *typed) {
    const auto& [code, holder] = entry;
    const Holder& value = values->at(key);
    text += (text.empty() ? "" : " ") + std::to_string(key) + ":" + std::to_string(code) + "=";
    if (code != ORVEX_STRUCT) {
      Require(holder == value && holder.use_count() == 2, "the same holder in both queues");
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
