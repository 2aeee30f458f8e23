// Ids that tie an answer to its query.

#pragma once

#include <json/value.h>

#include <cstdint>

#include "orvex_args.h"

// The next id: 1, 2, ... and after the largest one 1 again. One sequence for all kinds of queries.
uint32_t NextQueryId();

// Reads "QueryId" of an answer. False, with `query_id` untouched, when it is no unsigned integer;
// false for 0, which is also what a missing one counts as.
ORVD_EXPORT bool query_id_validation(const Json::Value& msg, unsigned int& query_id);
