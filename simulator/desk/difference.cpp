#include "difference.h"

#include <algorithm>
#include <vector>

#include "byte_text.h"
#include "orvex_simulator/json_text.h"

namespace orvd {
namespace {

constexpr std::size_t kLongestValue = 200;     // bytes
constexpr std::size_t kLongestMessage = 2000;  // bytes
constexpr std::size_t kWidth = 100;            // characters of a line around the first difference
constexpr std::size_t kBefore = 60;            // of them, those in front of the difference
constexpr const char* kExpected = "\n  expected  ";
constexpr const char* kReceived = "\n  received  ";
constexpr std::size_t kIndent = 12;

// Compares whole numbers as integers, because a double does not hold all 64 bits.
bool SameNumber(const Json::Value& left, const Json::Value& right) {
  if (left.isInt64() && right.isInt64()) {
    return left.asInt64() == right.asInt64();
  }
  if (left.isUInt64() && right.isUInt64()) {
    return left.asUInt64() == right.asUInt64();
  }
  return left.asDouble() == right.asDouble();
}

bool SameValue(const Json::Value& left, const Json::Value& right) {
  return left.isNumeric() && right.isNumeric() ? SameNumber(left, right) : left == right;
}

std::optional<Difference> Compare(const Json::Value& expected, const Json::Value& received,
                                  const std::string& path) {
  if (expected.isObject() && received.isObject()) {
    for (const std::string& name : expected.getMemberNames()) {
      std::string inner = path;
      inner += path.empty() ? "" : ".";
      inner += name;
      if (!received.isMember(name)) {
        return Difference{inner, WriteCompact(expected[name]), "nothing"};
      }
      if (auto difference = Compare(expected[name], received[name], inner)) {
        return difference;
      }
    }
    return std::nullopt;
  }
  if (expected.isArray() && received.isArray() && expected.size() == received.size()) {
    for (Json::ArrayIndex i = 0; i < expected.size(); ++i) {
      const std::string inner = path + "[" + std::to_string(i) + "]";
      if (auto difference = Compare(expected[i], received[i], inner)) {
        return difference;
      }
    }
    return std::nullopt;
  }
  if (SameValue(expected, received)) {
    return std::nullopt;
  }
  return Difference{path, WriteCompact(expected), WriteCompact(received)};
}

// Returns the characters near `position`. A "…" stands for those that are left out.
std::string Window(const std::vector<std::string>& characters, std::size_t begin) {
  const std::size_t end = std::min(begin + kWidth, characters.size());
  std::string text = begin == 0 ? "" : "…";
  for (std::size_t i = begin; i < end; ++i) {
    text += characters[i];
  }
  return text + (end < characters.size() ? "…" : "");
}

std::size_t CaretColumn(const std::vector<std::string>& characters, std::size_t begin,
                        std::size_t position) {
  std::size_t column = kIndent + (begin == 0 ? 0 : 1);
  for (std::size_t i = begin; i < position; ++i) {
    const bool escaped = characters[i].size() > 1 && characters[i].front() == '\\';
    column += escaped ? characters[i].size() : 1;
  }
  return column;
}

}  // namespace

std::optional<Difference> FindDifference(const Json::Value& expected, const Json::Value& received) {
  return Compare(expected, received, "");
}

std::string CompareMembers(const Json::Value& expected, const std::string& received) {
  const auto difference = FindDifference(expected, ParseObject(received));
  if (!difference) {
    return "";
  }
  return difference->path + " differs" +                                    //
         kExpected + PrintableBegin(difference->expected, kLongestValue) +  //
         kReceived + PrintableBegin(difference->received, kLongestValue) +  //
         "\n  the expected members  " +                                     //
         PrintableBegin(WriteCompact(expected), kLongestMessage) +          //
         "\n  the received message  " + PrintableBegin(received, kLongestMessage);
}

std::string CompareTexts(const std::string& expected, const std::string& received) {
  if (expected == received) {
    return "";
  }
  const std::vector<std::string> left = PrintableCharacters(expected);
  const std::vector<std::string> right = PrintableCharacters(received);
  const auto [first, other] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
  const auto position = static_cast<std::size_t>(first - left.begin());
  const std::size_t begin =
      std::max(left.size(), right.size()) <= kWidth ? 0 : position - std::min(position, kBefore);
  return "the texts differ at character " + std::to_string(position + 1) +  //
         kExpected + Window(left, begin) +                                  //
         kReceived + Window(right, begin) +                                 //
         "\n" + std::string(CaretColumn(left, begin, position), ' ') + "^";
}

}  // namespace orvd
