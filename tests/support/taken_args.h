// The decoded arguments of a task as one text.

#pragma once

#include <stdexcept>
#include <string>

#include "orvex/arguments.h"
#include "orvex/object.h"

// Returns the arguments as KEY:CODE=VALUE with the value in JSON, the members of a struct in {}.
inline std::string TextOf(const orvex::Arguments& args) {
  std::string text;
  args.ForEach([&text](int key, const auto& value, orvex_data_type_t code) {
    text += (text.empty() ? "" : " ") + std::to_string(key) + ":" + std::to_string(code) + "=";
    if constexpr (std::is_same_v<decltype(value), const orvex::Arguments&>) {
      text += "{" + TextOf(value) + "}";
    } else {
      text += orvex::Object{{"", value}}.Members().substr(3);
    }
  });
  return text;
}

// Throws when the two queues of a task do not have the same keys and values.
inline void RequireSameValues(const orvex_typed_map_t& typed, const orvex_value_map_t& values) {
  using orvex::detail::HolderValue;
  bool is_same = typed.size() == values.size();
  for (const auto& [key, entry] : typed) {
    const auto& [code, holder] = entry;
    const auto& value = values.at(key);
    if (code == ORVEX_STRUCT) {
      RequireSameValues(*HolderValue<orvex_typed_map_t*>(*holder),
                        *HolderValue<orvex_value_map_t*>(*value));
    } else {
      is_same = is_same && holder == value && holder.use_count() == 2;
    }
  }
  is_same ? void() : throw std::logic_error("the queues have different values");
}

// Returns TextOf the arguments, "null" without queues. Checks that both queues are equal. Deletes
// the member maps of structs, as a service does.
inline std::string TakeArgs(const orvex_func_call_info_t& info) {
  if (info.typed_queue == nullptr || info.value_queue == nullptr) {
    return info.typed_queue == nullptr && info.value_queue == nullptr ? "null" : "half null";
  }
  RequireSameValues(*info.typed_queue, *info.value_queue);
  std::string text = TextOf(orvex::Arguments(info));
  orvex::FreeStructMembers(info);
  return text;
}
