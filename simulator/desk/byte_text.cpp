#include "byte_text.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace orvd {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

struct Character {
  std::size_t length = 0;  // 0: not UTF-8
  unsigned code = 0;
};

// The character at the beginning of `bytes`, which are not empty.
Character FirstCharacter(std::string_view bytes) {
  const auto at = [&bytes](std::size_t i) {
    return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
  };
  const unsigned first = at(0);
  if (first < 0x80) {
    return {1, first};
  }
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  unsigned code = first & (0xffU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xc0U) != 0x80) {
      return {};
    }
    code = code << 6U | (at(i) & 0x3fU);
  }
  constexpr std::array<unsigned, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
  const bool valid = first >= 0xc2 && code >= kLeast[length] && code <= 0x10ffff &&
                     (code < 0xd800 || code > 0xdfff);
  return valid ? Character{length, code} : Character{};
}

bool IsControl(unsigned code) {
  return code < 0x20 || (code >= 0x7f && code <= 0x9f);
}

}  // namespace

bool IsUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = FirstCharacter(bytes).length;
    if (length == 0) {
      return false;
    }
    bytes.remove_prefix(length);
  }
  return true;
}

void AppendHex(std::string& text, std::string_view bytes) {
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text.push_back(kDigits[value / 16]);
    text.push_back(kDigits[value % 16]);
  }
}

std::string HexOf(std::string_view bytes) {
  std::string hex;
  AppendHex(hex, bytes);
  return hex;
}

std::optional<std::string> BytesOf(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const std::size_t high = kDigits.find(hex[i]);
    const std::size_t low = i + 1 < hex.size() ? kDigits.find(hex[i + 1]) : std::string::npos;
    if (high == std::string::npos || low == std::string::npos) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  return bytes;
}

std::vector<std::string> PrintableCharacters(std::string_view bytes) {
  std::vector<std::string> characters;
  while (!bytes.empty()) {
    const auto [length, code] = FirstCharacter(bytes);
    const bool shown = length != 0 && !IsControl(code);
    const std::string_view next = bytes.substr(0, shown ? length : 1);
    characters.push_back(shown ? std::string(next) : "\\x" + HexOf(next));
    bytes.remove_prefix(next.size());
  }
  return characters;
}

std::string Printable(std::string_view bytes) {
  const std::vector<std::string> characters = PrintableCharacters(bytes);
  return std::accumulate(characters.begin(), characters.end(), std::string());
}

std::string PrintableBegin(std::string_view bytes, std::size_t most) {
  const std::string note =
      bytes.size() > most ? "… (" + std::to_string(bytes.size()) + " bytes)" : "";
  return Printable(bytes.substr(0, most)) + note;
}

}  // namespace orvd
