// The functions of orvex/object.h.

#pragma once

#include <json/value.h>

#include <array>
#include <charconv>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "orvex/detail/inline.h"
#include "orvex/object.h"

namespace orvex {

namespace detail {

struct Utf8Sequence {
  std::size_t length;  // of an invalid sequence: as far as it could have been valid
  bool is_valid;
};

// Judges the sequence at the beginning of `text`, which is not empty.
ORVEX_INLINE Utf8Sequence FirstSequence(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) {
    return {1, true};
  }
  if (lead < 0xc2 || lead > 0xf4) {
    return {1, false};
  }
  const std::size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
  // The second byte excludes overlong forms, surrogates, and what is above U+10FFFF.
  unsigned char low = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
  unsigned char high = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
  for (std::size_t i = 1; i < length; ++i) {
    if (i == text.size() || byte(i) < low || byte(i) > high) {
      return {i, false};
    }
    low = 0x80;
    high = 0xbf;
  }
  return {length, true};
}

ORVEX_INLINE bool IsPlain(char character) {
  const auto code = static_cast<unsigned char>(character);
  return code >= 0x20 && code < 0x80 && character != '"' && character != '\\';
}

// Writes the escape sequence of an ASCII character.
ORVEX_INLINE void WriteEscaped(std::string& text, char character) {
  constexpr std::string_view kCharacters = "\"\\\b\f\n\r\t";
  constexpr std::string_view kLetters = "\"\\bfnrt";
  constexpr const char* kDigits = "0123456789abcdef";
  const std::size_t found = kCharacters.find(character);
  text += '\\';
  if (found != std::string_view::npos) {
    text += kLetters[found];
    return;
  }
  const auto code = static_cast<unsigned char>(character);
  text += "u00";
  text += kDigits[code / 16];
  text += kDigits[code % 16];
}

// Writes the first characters of `rest`, which are not plain. Returns how many bytes of `rest` they
// are.
ORVEX_INLINE std::size_t WriteSpecial(std::string& text, std::string_view rest) {
  const Utf8Sequence sequence = FirstSequence(rest);
  if (!sequence.is_valid) {
    text += "\xef\xbf\xbd";  // U+FFFD
  } else if (sequence.length == 1) {
    WriteEscaped(text, rest.front());
  } else {
    text += rest.substr(0, sequence.length);
  }
  return sequence.length;
}

ORVEX_INLINE void WriteText(std::string& text, std::string_view content) {
  text += '"';
  while (!content.empty()) {
    std::size_t plain = 0;
    while (plain < content.size() && IsPlain(content[plain])) {
      ++plain;
    }
    text += content.substr(0, plain);
    content.remove_prefix(plain);
    if (!content.empty()) {
      content.remove_prefix(WriteSpecial(text, content));
    }
  }
  text += '"';
}

ORVEX_INLINE void WriteCharacters(std::string& text, const char* content) {
  content != nullptr ? WriteText(text, content) : WriteJson(text, nullptr);
}

template <typename T>
void PrintShortest(std::string& text, T number) {
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  text.append(digits.data(), end);
}

// Writes the first of some precisions that reads back the same. For standard libraries whose
// std::to_chars does not take floating-point numbers.
template <typename T>
void PrintNumber(std::string& text, T number) {
  using Limits = std::numeric_limits<T>;
  std::array<char, 64> digits{};
  for (int precision = Limits::digits10; precision <= Limits::max_digits10; ++precision) {
    static_cast<void>(std::snprintf(digits.data(), digits.size(), "%.*g", precision,
                                    static_cast<double>(number)));
    if (static_cast<T>(std::strtod(digits.data(), nullptr)) == number) {
      break;
    }
  }
  std::string printed = digits.data();
  const std::string point = std::localeconv()->decimal_point;
  if (const std::size_t found = printed.find(point); found != std::string::npos) {
    printed.replace(found, point.size(), ".");
  }
  text += printed;
}

// Writes a floating-point number.
template <typename T>
void WriteFloat(std::string& text, T number) {
  using Limits = std::numeric_limits<T>;
  if (!(number >= Limits::lowest() && number <= Limits::max())) {
    throw Failure("a number of the answer is not finite, which JSON cannot express");
  }
  const std::size_t begin = text.size();
#if defined(__cpp_lib_to_chars) && __cpp_lib_to_chars >= 201611L
  PrintShortest(text, number);
#else
  PrintNumber(text, number);
#endif
  if (std::string_view{text}.substr(begin) == "-0") {
    text += ".0";  // a reader takes "-0" for an integer, which loses the sign
  }
}

ORVEX_INLINE void WriteNumber(std::string& text, int64_t number) {
  PrintShortest(text, number);
}
ORVEX_INLINE void WriteNumber(std::string& text, uint64_t number) {
  PrintShortest(text, number);
}
ORVEX_INLINE void WriteNumber(std::string& text, float number) {
  WriteFloat(text, number);
}
ORVEX_INLINE void WriteNumber(std::string& text, double number) {
  WriteFloat(text, number);
}

ORVEX_INLINE void WriteJsonValue(std::string& text, const Json::Value& value) {
  switch (value.type()) {
    case Json::nullValue:
      return WriteJson(text, nullptr);
    case Json::intValue:
      return WriteJson(text, value.asInt64());
    case Json::uintValue:
      return WriteJson(text, value.asUInt64());
    case Json::realValue:
      return WriteJson(text, value.asDouble());
    case Json::stringValue:
      return WriteJson(text, value.asString());
    case Json::booleanValue:
      return WriteJson(text, value.asBool());
    case Json::arrayValue:
      return WriteElements(text, value.begin(), value.end());
    case Json::objectValue:
      return WriteJson(text, Object(value));  // one copy of its text more than necessary
  }
}

ORVEX_INLINE void Value::WriteCharacters(std::string& text, const Value& self) {
  detail::WriteCharacters(text, static_cast<const char*>(self.data_));
}

ORVEX_INLINE void Value::WriteString(std::string& text, const Value& self) {
  WriteText(text, *static_cast<const std::string*>(self.data_));
}

ORVEX_INLINE void Value::WriteObject(std::string& text, const Value& self) {
  const auto* begin = static_cast<const Member*>(self.data_);
  Object object;
  for (const auto* member = begin; member != begin + self.size_; ++member) {
    object.Set(member->name, member->value);
  }
  WriteJson(text, object);
}

}  // namespace detail

ORVEX_INLINE Object::Object(std::initializer_list<detail::Member> members) {
  begins_.reserve(members.size());
  for (const detail::Member& member : members) {
    const std::size_t begin = BeginMember();
    const std::size_t value = WriteMember(text_, member.name, member.value);
    EndMember(begin, value - begin);
  }
}

ORVEX_INLINE Object& Object::Set(std::string_view name, const detail::Value& value) {
  std::string member;  // apart, because the value may be this object
  const std::size_t head = WriteMember(member, name, value);
  const std::size_t begin = BeginMember();
  text_ += member;
  EndMember(begin, head);
  return *this;
}

ORVEX_INLINE std::string Object::Members() && {
  begins_.clear();
  return std::exchange(text_, {});
}

// Returns the size of the text behind the colon.
ORVEX_INLINE std::size_t Object::WriteMember(std::string& text, std::string_view name,
                                             const detail::Value& value) {
  detail::WriteText(text, name);
  text += ':';
  const std::size_t head = text.size();
  value.Write(text);
  return head;
}

ORVEX_INLINE void Object::AddMembersOf(const Json::Value& json) {
  if (!json.isObject() && !json.isNull()) {
    throw Failure("an answer has to be a JSON object");
  }
  for (auto member = json.begin(); member != json.end(); ++member) {
    begins_.push_back(BeginMember());  // no name comes twice
    WriteMember(text_, member.name(), *member);
  }
}

ORVEX_INLINE std::size_t Object::BeginMember() {
  if (!text_.empty()) {
    text_ += ',';
  }
  return text_.size();
}

// The member from `begin` to the end is complete. Its first `head` characters are name and colon.
ORVEX_INLINE void Object::EndMember(std::size_t begin, std::size_t head) {
  for (std::size_t i = 0; i < begins_.size(); ++i) {
    if (text_.compare(begins_[i], head, text_, begin, head) == 0) {
      ReplaceMember(i, begin);
      return;
    }
  }
  begins_.push_back(begin);
}

// Moves the last member, which begins at `begin`, to the place of member `index`.
ORVEX_INLINE void Object::ReplaceMember(std::size_t index, std::size_t begin) {
  const std::string member = text_.substr(begin);
  text_.resize(begin - 1);
  const std::size_t end = index + 1 < begins_.size() ? begins_[index + 1] - 1 : text_.size();
  const std::size_t old_size = end - begins_[index];
  text_.replace(begins_[index], old_size, member);
  for (std::size_t i = index + 1; i < begins_.size(); ++i) {
    begins_[i] = begins_[i] - old_size + member.size();
  }
}

}  // namespace orvex
