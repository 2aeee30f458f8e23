// Escapes texts that the library puts into its messages as they are.

#pragma once

#include <string>
#include <string_view>

#include "orvex/object.h"

namespace orvex::detail {

// The text as it stands between the quotation marks of a JSON text.
inline std::string Escaped(std::string_view text) {
  std::string quoted;
  WriteText(quoted, text);
  return quoted.substr(1, quoted.size() - 2);
}

}  // namespace orvex::detail
