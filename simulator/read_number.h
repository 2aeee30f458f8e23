// Converts a text to a number.

#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace orvd {

// Converts the whole of `text`. Returns nothing if that fails, or if the number does not fit.
template <typename Number>
std::optional<Number> ReadWhole(std::string_view text, int base = 10) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

}  // namespace orvd
