// The answer of a function: a JSON object, built from names and values.

#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "orvex/arguments.h"
#include "orvex/failure.h"

namespace orvex {

class Object;

namespace detail {

struct Member;

template <typename T>
void WriteJson(std::string& text, const T& value);

// Refers to a value of any type that an Object can hold. It exists within one expression only.
class Value {
 public:
  template <typename T>
  Value(const T& value)  // NOLINT(google-explicit-constructor): `{"name", value}`
      : data_(std::addressof(value)), write_(&Value::WriteOne<T>) {}
  // The same for the texts, which compiles faster.
  Value(const char* value)  // NOLINT(google-explicit-constructor)
      : data_(value), write_(&Value::WriteCharacters) {}
  Value(const std::string& value)  // NOLINT(google-explicit-constructor)
      : data_(&value), write_(&Value::WriteString) {}
  template <typename T>
  Value(std::initializer_list<T> list)  // `{"name", {1, 2, 3}}`
      : data_(list.begin()), size_(list.size()), write_(&Value::WriteList<T>) {}
  Value(std::initializer_list<Member> members)  // `{"name", {{"name", value}}}`
      : data_(members.begin()), size_(members.size()), write_(&Value::WriteObject) {}

  void Write(std::string& text) const { write_(text, *this); }

 private:
  template <typename T>
  static void WriteOne(std::string& text, const Value& self) {
    WriteJson(text, *static_cast<const T*>(self.data_));
  }
  template <typename T>
  static void WriteList(std::string& text, const Value& self);
  static void WriteCharacters(std::string& text, const Value& self);
  static void WriteString(std::string& text, const Value& self);
  static void WriteObject(std::string& text, const Value& self);

  const void* data_;
  std::size_t size_ = 0;
  void (*write_)(std::string& text, const Value& self);
};

struct Member {
  Member(std::string_view its_name, const Value& its_value) : name(its_name), value(its_value) {}
  Member(std::nullptr_t, const Value&) = delete;  // `{0, 0}` is two numbers

  std::string_view name;
  Value value;
};

}  // namespace detail

// A JSON object. Its members keep the order in which they were given. A name that comes again
// replaces the value and keeps the place.
//
// A value is one of: bool, an integer of up to 64 bits, float, double, a text, nullptr, a C++
// enumeration or orvex::Enum (as a number), orvex::Blob, Object, Json::Value, a list of these
// (std::vector and other ranges, or braces), a std::optional of these (null without a value), or
// names and values in braces (an object).
//
// Texts may have any content: quotation marks, backslashes and control characters are escaped, and
// invalid UTF-8 is replaced by U+FFFD. A number that is not finite throws Failure.
class Object {
 public:
  Object() = default;
  // Not explicit, so that a handler can return `{{"celsius", 21.5}, {"sensor", "skin"}}`.
  Object(std::initializer_list<detail::Member> members);
  // The members of a JSON object; none for null. Throws Failure for other kinds of JSON.
  template <typename T, std::enable_if_t<std::is_same_v<T, Json::Value>, int> = 0>
  Object(const T& json) {  // NOLINT(google-explicit-constructor): handlers may return one
    AddMembersOf(json);
  }

  // Adds a member, or replaces the value of the member with this name.
  Object& Set(std::string_view name, const detail::Value& value);

  // The JSON text without the outer braces.
  const std::string& Members() const& { return text_; }
  // The same, for an object that is not needed any more.
  std::string Members() &&;

 private:
  static std::size_t WriteMember(std::string& text, std::string_view name,
                                 const detail::Value& value);

  void AddMembersOf(const Json::Value& json);
  std::size_t BeginMember();
  void EndMember(std::size_t begin, std::size_t head);
  void ReplaceMember(std::size_t index, std::size_t begin);

  std::string text_;
  std::vector<std::size_t> begins_;  // where each member begins
};

namespace detail {

// Not a character: it could be meant as a number or as a text.
template <typename T>
inline constexpr bool kIsInteger = std::is_integral_v<T> && sizeof(T) <= sizeof(int64_t) &&
                                   !std::is_same_v<T, char> &&
#if defined(__cpp_char8_t)
                                   !std::is_same_v<T, char8_t> &&
#endif
                                   !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char16_t> &&
                                   !std::is_same_v<T, char32_t>;

template <typename T>
using ElementOf = std::remove_cv_t<
    typename std::iterator_traits<decltype(std::begin(std::declval<const T&>()))>::value_type>;

template <typename T, typename = void>
struct IsRange : std::false_type {};
// A range of itself, like a file system path, has no end.
template <typename T>
struct IsRange<T, std::void_t<ElementOf<T>, decltype(std::end(std::declval<const T&>()))>>
    : std::bool_constant<!std::is_same_v<ElementOf<T>, T>> {};

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <typename T>
inline constexpr bool kUnsupported = false;

// Write a value as JSON text: a text with its quotation marks, a number as short as possible. The
// numbers that are not finite throw Failure.
void WriteText(std::string& text, std::string_view content);
void WriteCharacters(std::string& text, const char* content);  // null without a text
void WriteNumber(std::string& text, int64_t number);
void WriteNumber(std::string& text, uint64_t number);
void WriteNumber(std::string& text, float number);
void WriteNumber(std::string& text, double number);
void WriteJsonValue(std::string& text, const Json::Value& value);

// Writes a number of any integer type.
template <typename T>
void WriteInteger(std::string& text, T number) {
  WriteNumber(text,
              static_cast<std::conditional_t<std::is_signed_v<T>, int64_t, uint64_t>>(number));
}

template <typename Iterator>
void WriteElements(std::string& text, Iterator begin, Iterator end) {
  text += '[';
  for (Iterator element = begin; element != end; ++element) {
    if (element != begin) {
      text += ',';
    }
    // Not the type of `*element`: for a std::vector<bool> that may be a proxy.
    WriteJson<std::remove_cv_t<typename std::iterator_traits<Iterator>::value_type>>(text,
                                                                                     *element);
  }
  text += ']';
}

template <typename T>
void WriteJson(std::string& text, const T& value) {
  if constexpr (std::is_same_v<T, Object>) {
    text += '{';
    text += value.Members();
    text += '}';
  } else if constexpr (std::is_same_v<T, Json::Value>) {
    WriteJsonValue(text, value);
  } else if constexpr (std::is_same_v<T, std::nullptr_t>) {
    text += "null";
  } else if constexpr (std::is_same_v<T, bool>) {
    text += value ? "true" : "false";
  } else if constexpr (kIsInteger<T>) {
    WriteInteger(text, value);
  } else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>) {
    WriteNumber(text, value);
  } else if constexpr (std::is_enum_v<T>) {
    WriteInteger(text, static_cast<std::underlying_type_t<T>>(value));
  } else if constexpr (std::is_same_v<T, Enum>) {
    WriteInteger(text, value.value);
  } else if constexpr (std::is_same_v<T, Blob>) {
    WriteText(text, value.text);
  } else if constexpr (IsOptional<T>::value) {
    value ? WriteJson(text, *value) : WriteJson(text, nullptr);
  } else if constexpr (std::is_convertible_v<const T&, const char*>) {
    WriteCharacters(text, value);
  } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
    WriteText(text, value);
  } else if constexpr (IsRange<T>::value) {
    WriteElements(text, std::begin(value), std::end(value));
  } else {
    static_assert(kUnsupported<T>, "orvex::Object: a value of this type cannot be written as JSON");
  }
}

template <typename T>
void Value::WriteList(std::string& text, const Value& self) {
  const auto* begin = static_cast<const T*>(self.data_);
  WriteElements(text, begin, begin + self.size_);
}

}  // namespace detail
}  // namespace orvex

#ifndef ORVEX_SEPARATE_COMPILATION
#include "orvex/detail/object_impl.h"
#endif
