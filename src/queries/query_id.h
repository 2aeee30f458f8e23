// Query ids: each answer repeats the id of its query.

#pragma once

#include <json/value.h>

#include <cstdint>

#include "orvex_args.h"

namespace orvd_client {

// Returns the next id: 1, 2, and so on; after the largest number it returns 1 again. All kinds of
// queries share one sequence.
uint32_t NextQueryId();

}  // namespace orvd_client

// Reads "QueryId" of an answer. Returns false, and does not change `query_id`, if the member is not
// an unsigned integer. Returns false for 0; a missing member counts as 0.
ORVD_EXPORT bool query_id_validation(const Json::Value& msg, unsigned int& query_id);
