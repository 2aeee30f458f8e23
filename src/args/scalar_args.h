#pragma once

#include <json/value.h>

#include <string>

#include "args/data_types.h"

namespace orvd_client {

// The log texts for an argument that is not in a vector or a struct.
inline constexpr DecoderTexts kArgumentTexts{
    "Arg type %s and type of value do not match while parsing", "Out of range value for %s"};

// Decodes `value` and adds it to both queues under `key`. Returns 0, or -1 after a log line. Adds
// nothing, and returns 0, if the type has no value: "none", "cb", unknown names.
int AddScalarParam(const Json::Value& value, orvex_data_type_t type, const std::string& type_name,
                   int key, orvex_func_call_info_t* info);

}  // namespace orvd_client
