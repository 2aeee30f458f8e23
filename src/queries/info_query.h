// INFO_QUERY and INFO_MNTR: asks for information items.

#pragma once

#include <json/value.h>

namespace orvd_client {

// Handles the Manager's answer to either.
void HandleInfoAnswer(const Json::Value& message);

}  // namespace orvd_client
