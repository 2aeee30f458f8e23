// Decodes one JSON value of a data type.

#pragma once

#include <json/value.h>

#include <memory>
#include <string>
#include <utility>

#include "args/data_types.h"
#include "base/log.h"
#include "orvex_args.h"

namespace orvd_client {

// The log texts of one decoder; each contains the type's name. The texts differ between the
// decoders.
struct DecoderTexts {
  const char* mismatch;
  const char* out_of_range;
};

// Reads `json` as a value of the row's type and passes it to `store`. Returns false, after a log
// line, if the value has another kind or is out of range.
template <typename DataType, typename Store>
bool ReadValue(const DataType& /*row*/, const Json::Value& json, const std::string& type_name,
               const DecoderTexts& texts, Store store) {
  if (!DataType::HasKind(json)) {
    LOG_AT(kEveryLevel, texts.mismatch, type_name.c_str());
    return false;
  }
  auto value = DataType::ReadJson(json);
  if (!DataType::IsInRange(value)) {
    LOG_AT(kEveryLevel, texts.out_of_range, type_name.c_str());
    return false;
  }
  store(static_cast<typename DataType::Value>(std::move(value)));
  return true;
}

// Decodes a scalar value of the given type, and passes its holder to `store`. Returns 0. Returns 0
// too if the type has no scalar value, and then stores nothing. Returns -1, after a log line, if
// the value has another kind or is out of range.
template <typename Store>
int DecodeScalar(const Json::Value& json, orvex_data_type_t type, const std::string& type_name,
                 const DecoderTexts& texts, Store store) {
  constexpr int kNothingStored = 0;
  return VisitDataType(type, kNothingStored, [&](const auto& row) {
    using Value = typename std::decay_t<decltype(row)>::Value;
    const bool stored = ReadValue(row, json, type_name, texts, [&store](Value&& value) {
      store(std::make_shared<ParamValues<Value>>(std::move(value)));
    });
    return stored ? 0 : -1;
  });
}

}  // namespace orvd_client
