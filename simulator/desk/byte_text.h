// Bytes of a message as text: UTF-8, hexadecimal digits, and characters that a terminal can show.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvd {

bool IsUtf8(std::string_view bytes);

// Hexadecimal digits, two for each byte.
std::string HexOf(std::string_view bytes);
void AppendHex(std::string& text, std::string_view bytes);
// The reverse. Returns nothing if `hex` is not pairs of the digits 0 to f.
std::optional<std::string> BytesOf(std::string_view hex);

// Splits `bytes` into characters of UTF-8. Control characters, and bytes that are not UTF-8, become
// \xNN, one element each.
std::vector<std::string> PrintableCharacters(std::string_view bytes);
// The same as one text.
std::string Printable(std::string_view bytes);
// The first `most` bytes only. If there are more, a note with their number follows.
std::string PrintableBegin(std::string_view bytes, std::size_t most);

}  // namespace orvd
