// Reads the answer of a task without parsing its JSON, where that is safe.

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace orvd {

struct ScannedAnswer {
  std::int32_t transac_id;
  std::int32_t status;
  std::uint32_t session_id;
};

// The library ends every answer with these three members, in this order and spacing. A text of the
// service can stand only before them. Returns nothing for every other message.
std::optional<ScannedAnswer> ScanAnswer(std::string_view message);

}  // namespace orvd
