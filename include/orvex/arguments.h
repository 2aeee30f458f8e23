// The arguments of one task, and the members of a struct argument, by key and C++ type.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "orvex/failure.h"
#include "orvex_args.h"

namespace orvex {

// The value of an argument of the type "enum".
struct Enum {
  int32_t value;  // the number in the message
};

// The value of an argument of the type "bnry_blb".
struct Blob {
  std::string text;  // the text in the message; the library does not decode it
};

// Thrown for an argument that is missing or that has another type. The text names the key, the
// expected type, and the given type or that the argument is missing.
class ArgumentError : public Failure {
 public:
  // The layer makes these; `text` is what what() returns.
  explicit ArgumentError(const std::string& text) : Failure(text) {}
};

namespace detail {

template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};

// How an argument of the C++ type T is queued: the type code, and the C++ type in the holder.
template <orvex_data_type_t Code, typename T>
struct QueuedAs {
  static constexpr orvex_data_type_t kCode = Code;
  using Held = T;
};

template <typename T, typename = void>
struct ArgumentType : QueuedAs<ORVEX_NONE, T> {};  // T is not the type of an argument
template <>
struct ArgumentType<uint8_t> : QueuedAs<ORVEX_UINT8, uint8_t> {};
template <>
struct ArgumentType<uint16_t> : QueuedAs<ORVEX_UINT16, uint16_t> {};
template <>
struct ArgumentType<uint32_t> : QueuedAs<ORVEX_UINT32, uint32_t> {};
template <>
struct ArgumentType<uint64_t> : QueuedAs<ORVEX_UINT64, uint64_t> {};
template <>
struct ArgumentType<int8_t> : QueuedAs<ORVEX_INT8, int8_t> {};
template <>
struct ArgumentType<int16_t> : QueuedAs<ORVEX_INT16, int16_t> {};
template <>
struct ArgumentType<int32_t> : QueuedAs<ORVEX_INT32, int32_t> {};
template <>
struct ArgumentType<int64_t> : QueuedAs<ORVEX_INT64, int64_t> {};
template <>
struct ArgumentType<double> : QueuedAs<ORVEX_DOUBLE, double> {};
template <>
struct ArgumentType<std::string> : QueuedAs<ORVEX_STRING, std::string> {};
template <>
struct ArgumentType<bool> : QueuedAs<ORVEX_BOOLEAN, bool> {};
template <>
struct ArgumentType<Enum> : QueuedAs<ORVEX_ENUM, int32_t> {};
template <typename T>
struct ArgumentType<T, std::enable_if_t<std::is_enum_v<T>>> : QueuedAs<ORVEX_ENUM, int32_t> {};
template <>
struct ArgumentType<Blob> : QueuedAs<ORVEX_BNRY_BLB, std::string> {};

template <typename T>
inline constexpr bool kIsArgumentType = ArgumentType<T>::kCode != ORVEX_NONE;

template <typename T>
struct ArgumentType<std::vector<T>, std::enable_if_t<kIsArgumentType<T> && !IsVector<T>::value>>
    : QueuedAs<ORVEX_VECTOR_OF(ArgumentType<T>::kCode),
               std::vector<typename ArgumentType<T>::Held>> {};

template <typename T>
using HeldType = typename ArgumentType<T>::Held;

// Whether a held value can be given as a `const T&`, without a copy.
template <typename T>
inline constexpr bool kIsHeldAsIs = std::is_same_v<T, HeldType<T>>;

// Whether the number fits into the C++ enumeration. All other held values fit.
template <typename T>
bool Fits([[maybe_unused]] const HeldType<T>& held) noexcept {
  if constexpr (std::is_enum_v<T>) {
    using Number = std::underlying_type_t<T>;
    return static_cast<int64_t>(static_cast<Number>(held)) == held &&
           (std::is_signed_v<Number> || held >= 0);
  } else if constexpr (IsVector<T>::value && !kIsHeldAsIs<T>) {
    bool all_fit = true;
    for (const auto& element : held) {
      all_fit = all_fit && Fits<typename T::value_type>(element);
    }
    return all_fit;
  } else {
    return true;
  }
}

// Makes a T of a held value.
template <typename T>
T FromHeld(const HeldType<T>& held) {
  if constexpr (std::is_enum_v<T>) {
    return static_cast<T>(held);
  } else if constexpr (kIsHeldAsIs<T>) {
    return held;
  } else if constexpr (IsVector<T>::value) {
    T values;
    values.reserve(held.size());
    for (const auto& element : held) {
      values.push_back(FromHeld<typename T::value_type>(element));
    }
    return values;
  } else {
    return T{held};
  }
}

template <typename T>
T& HolderValue(ValuesInterface& holder) noexcept {
  return static_cast<ParamValues<T>&>(holder).value;
}

template <typename T>
struct TypeTag {
  using type = T;
};

// Calls `visit` with the TypeTag of the C++ type that has this code: a scalar, or a vector of it.
template <typename Visit>
void VisitType(orvex_data_type_t code, const Visit& visit) {
  const auto visit_all = [&](auto... types) {
    const auto visit_if = [&](auto type) {
      using T = typename decltype(type)::type;
      if (code == ArgumentType<T>::kCode) {
        visit(type);
      } else if (code == ArgumentType<std::vector<T>>::kCode) {
        visit(TypeTag<std::vector<T>>{});
      }
    };
    (visit_if(types), ...);
  };
  visit_all(TypeTag<uint8_t>{}, TypeTag<uint16_t>{}, TypeTag<uint32_t>{}, TypeTag<uint64_t>{},
            TypeTag<int8_t>{}, TypeTag<int16_t>{}, TypeTag<int32_t>{}, TypeTag<int64_t>{},
            TypeTag<double>{}, TypeTag<std::string>{}, TypeTag<bool>{}, TypeTag<Enum>{},
            TypeTag<Blob>{});
}

// The name of a type as it is in a message.
std::string TypeName(orvex_data_type_t code);

}  // namespace detail

// A view over the arguments of a task or over the members of a struct. It is valid as long as the
// record and its queues exist, at most until the task function returns.
//
// The key of a scalar or a vector is its "id". The key of a struct is its position in the list of
// arguments, counted from 0. When a struct and another argument have the same key, the library
// keeps the first of the two and drops the other.
//
// T is one of: uint8_t to int64_t, double, bool, std::string, orvex::Enum or any C++ enumeration,
// orvex::Blob, or a std::vector of these. The types match exactly: a "uint8" is not found as a
// uint16_t.
class Arguments {
 public:
  // A view over the arguments that the library has decoded into `info`.
  explicit Arguments(const orvex_func_call_info_t& info) noexcept : queue_(info.typed_queue) {}

  // Whether there is an argument of any type under `key`.
  bool Has(int key) const noexcept { return FindEntry(key) != nullptr; }

  // Whether there is a struct at this position of the list.
  bool HasStruct(int position) const noexcept;

  // The number of arguments, without those that the library skipped.
  std::size_t size() const noexcept { return queue_ != nullptr ? queue_->size() : 0; }

  // Points to the argument in the queue, and is null when there is none of this type. For an
  // enumeration it points to the int32_t, for a Blob to the std::string.
  template <typename T>
  const detail::HeldType<T>* Find(int key) const noexcept {
    return Held<T>(FindEntry(key));
  }

  // The argument. Throws ArgumentError when there is none of this type, and for a number that does
  // not fit into the underlying type of the C++ enumeration. Whether the enumeration has a name for
  // the number is not checked. A std::string and a std::vector are const references into the
  // queue. A vector of enumerations or Blobs is a copy, and so is everything else.
  template <typename T>
  decltype(auto) Get(int key) const {
    const Entry* entry = FindEntry(key);
    const auto* held = Held<T>(entry);
    if (held == nullptr) {
      ThrowMismatch(key, detail::ArgumentType<T>::kCode, entry);
    }
    if constexpr (detail::kIsHeldAsIs<T> && std::is_class_v<T>) {
      return static_cast<const T&>(*held);
    } else {
      if (!detail::Fits<T>(*held)) {
        ThrowDoesNotFit(key);
      }
      return detail::FromHeld<T>(*held);
    }
  }

  // The argument, or `fallback` when Get would throw.
  template <typename T>
  T GetOr(int key, T fallback) const {
    if (const auto* held = Find<T>(key); held != nullptr && detail::Fits<T>(*held)) {
      return detail::FromHeld<T>(*held);
    }
    return fallback;
  }

  // The members of the struct at this position of the list. Throws ArgumentError when there is no
  // struct under this key.
  Arguments Struct(int position) const;

  // Calls `visitor(key, value)` or `visitor(key, value, type)` for each argument, in the order of
  // the keys. `value` is a const reference to what Find points to; for a struct it is an Arguments
  // of the members. `type` is the orvex_data_type_t, which tells "enum" from "int32" and "bnry_blb"
  // from "string".
  template <typename Visitor>
  void ForEach(Visitor&& visitor) const {
    if (queue_ == nullptr) {
      return;
    }
    for (const auto& [key, entry] : *queue_) {
      Visit(visitor, key, entry);
    }
  }

 private:
  using Entry = orvex_typed_map_t::mapped_type;
  static constexpr int kNoStruct = -1;

  Arguments(const orvex_typed_map_t* members, int struct_position) noexcept
      : queue_(members), struct_position_(struct_position) {}

  static Arguments MembersOf(int position, const Entry& entry) noexcept {
    return {detail::HolderValue<orvex_typed_map_t*>(*entry.second), position};
  }

  // Null when there is no argument under the key.
  const Entry* FindEntry(int key) const noexcept;

  template <typename T>
  static const detail::HeldType<T>* Held(const Entry* entry) noexcept {
    static_assert(detail::kIsArgumentType<T>, "orvex: no argument of a task has this type");
    const bool has_type = entry != nullptr && entry->first == detail::ArgumentType<T>::kCode;
    return has_type ? &detail::HolderValue<detail::HeldType<T>>(*entry->second) : nullptr;
  }

  std::string Described(int key) const;
  [[noreturn]] void ThrowMismatch(int key, orvex_data_type_t expected, const Entry* given) const;
  [[noreturn]] void ThrowDoesNotFit(int key) const;

  template <typename Visitor>
  static void Visit(Visitor& visitor, int key, const Entry& entry) {
    const auto call = [&](const auto& value) {
      if constexpr (std::is_invocable_v<Visitor&, int, decltype(value), orvex_data_type_t>) {
        visitor(key, value, entry.first);
      } else {
        visitor(key, value);
      }
    };
    if (entry.first == ORVEX_STRUCT) {
      call(MembersOf(key, entry));
      return;
    }
    detail::VisitType(entry.first,
                      [&](auto type) { call(*Held<typename decltype(type)::type>(&entry)); });
  }

  const orvex_typed_map_t* queue_;
  int struct_position_ = kNoStruct;  // for the texts of errors
};

// The parameter of a handler that takes the members of a struct.
class Struct : public Arguments {
 public:
  // The same view as `members`.
  explicit Struct(const Arguments& members) noexcept : Arguments(members) {}
};

// Deletes the member maps of every struct in `info`, which the library leaves to the service. The
// queues must still exist. A second call for the same record does nothing.
void FreeStructMembers(const orvex_func_call_info_t& info) noexcept;

namespace detail {

// Deletes the member maps of every struct of a task when it is destroyed. Destroy it before the
// task function returns, because the library then deletes the queues.
class StructMembersOwner {
 public:
  explicit StructMembersOwner(const orvex_func_call_info_t& info)
      : queues_{{}, 0, info.value_queue, info.typed_queue} {}
  ~StructMembersOwner() { FreeStructMembers(queues_); }
  StructMembersOwner(const StructMembersOwner&) = delete;
  StructMembersOwner& operator=(const StructMembersOwner&) = delete;

 private:
  const orvex_func_call_info_t queues_;
};

}  // namespace detail
}  // namespace orvex

#ifndef ORVEX_SEPARATE_COMPILATION
#include "orvex/detail/arguments_impl.h"
#endif
