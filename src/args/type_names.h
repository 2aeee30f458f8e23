#pragma once

#include <string>

#include "orvex_args.h"

namespace orvd_client {

// Returns the type code of a type name. Returns ORVEX_NONE for an unknown name, and remembers the
// name. Any thread.
orvex_data_type_t TypeOfName(const std::string& name);

}  // namespace orvd_client
