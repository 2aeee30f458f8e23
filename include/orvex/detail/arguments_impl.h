// The functions of orvex/arguments.h.

#pragma once

#include <iterator>
#include <string>
#include <utility>

#include "orvex/arguments.h"
#include "orvex/detail/inline.h"

namespace orvex {

namespace detail {

ORVEX_INLINE std::string TypeName(orvex_data_type_t code) {
  constexpr const char* kNames[] = {"none",  "uint8",    "uint16", "uint32", "uint64", "int8",
                                    "int16", "int32",    "int64",  "double", "string", "boolean",
                                    "enum",  "bnry_blb", "cb",     "vector", "struct"};
  const bool is_vector = code > ORVEX_STRUCT;
  const auto index = static_cast<std::size_t>(is_vector ? code - ORVEX_STRUCT : code);
  if (index >= std::size(kNames)) {
    return "type " + std::to_string(code);
  }
  return is_vector ? std::string("vector of ") + kNames[index] : kNames[index];
}

}  // namespace detail

ORVEX_INLINE bool Arguments::HasStruct(int position) const noexcept {
  const Entry* entry = FindEntry(position);
  return entry != nullptr && entry->first == ORVEX_STRUCT;
}

ORVEX_INLINE Arguments Arguments::Struct(int position) const {
  const Entry* entry = FindEntry(position);
  if (entry == nullptr || entry->first != ORVEX_STRUCT) {
    ThrowMismatch(position, ORVEX_STRUCT, entry);
  }
  return MembersOf(position, *entry);
}

ORVEX_INLINE const Arguments::Entry* Arguments::FindEntry(int key) const noexcept {
  if (queue_ == nullptr) {
    return nullptr;
  }
  const auto found = queue_->find(key);
  return found != queue_->end() ? &found->second : nullptr;
}

ORVEX_INLINE std::string Arguments::Described(int key) const {
  if (struct_position_ == kNoStruct) {
    return "argument " + std::to_string(key);
  }
  return "member " + std::to_string(key) + " of struct " + std::to_string(struct_position_);
}

ORVEX_INLINE void Arguments::ThrowMismatch(int key, orvex_data_type_t expected,
                                           const Entry* given) const {
  throw ArgumentError(Described(key) + ": expected " + detail::TypeName(expected) + ", " +
                      (given != nullptr ? "given " + detail::TypeName(given->first) : "missing"));
}

ORVEX_INLINE void Arguments::ThrowDoesNotFit(int key) const {
  throw ArgumentError(Described(key) + ": the number does not fit into the enumeration");
}

ORVEX_INLINE void FreeStructMembers(const orvex_func_call_info_t& info) noexcept {
  if (info.typed_queue == nullptr || info.value_queue == nullptr) {
    return;
  }
  for (auto& [key, entry] : *info.typed_queue) {
    if (entry.first != ORVEX_STRUCT) {
      continue;
    }
    if (const auto values = info.value_queue->find(key); values != info.value_queue->end()) {
      delete std::exchange(detail::HolderValue<orvex_typed_map_t*>(*entry.second), nullptr);
      delete std::exchange(detail::HolderValue<orvex_value_map_t*>(*values->second), nullptr);
    }
  }
}

}  // namespace orvex
