#pragma once

#include <string>

#include "orvex_args.h"

// The type of a name. An unknown name is ORVEX_NONE, and is known from then on. Any thread.
orvex_data_type_t TypeOfName(const std::string& name);
