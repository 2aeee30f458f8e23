// One row for each type that has values: how a JSON value is tested, read and bounded. The scalar,
// vector and struct decoders differ in what they do with the outcome, not in this.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "link/log.h"
#include "orvex_args.h"

template <orvex_data_type_t Code, typename T, auto Test, auto Read>
struct ArgType {
  using Value = T;
  using Wide = decltype((std::declval<const Json::Value&>().*Read)());

  static constexpr orvex_data_type_t kCode = Code;
  // The JSON library has no reads of 8 and 16 bits: the narrow types are read wide and bounded
  // here. Unsigned ones are read signed, once they are known to fit: most values are held signed,
  // and the library tests those again when they are read unsigned.
  static constexpr bool kBounded = std::is_integral_v<T> && sizeof(T) < sizeof(Wide);

  static bool Fits(const Json::Value& json) { return (json.*Test)(); }
  static Wide ReadWide(const Json::Value& json) { return (json.*Read)(); }
  static bool InRange([[maybe_unused]] const Wide& wide) {
    if constexpr (kBounded) {
      return wide >= static_cast<Wide>(std::numeric_limits<T>::min()) &&
             wide <= static_cast<Wide>(std::numeric_limits<T>::max());
    } else {
      return true;
    }
  }
};

// Calls `visit` with the row of a type. Returns what it returns; `otherwise` for a type without
// values.
template <typename Visit, typename Result>
Result VisitArgType(orvex_data_type_t type, Result otherwise, Visit visit) {
  using Json::Value;
  switch (type) {
    case ORVEX_UINT8:
      return visit(ArgType<ORVEX_UINT8, uint8_t, &Value::isUInt, &Value::asInt64>{});
    case ORVEX_UINT16:
      return visit(ArgType<ORVEX_UINT16, uint16_t, &Value::isUInt, &Value::asInt64>{});
    case ORVEX_UINT32:
      return visit(ArgType<ORVEX_UINT32, uint32_t, &Value::isUInt, &Value::asInt64>{});
    case ORVEX_UINT64:
      return visit(ArgType<ORVEX_UINT64, uint64_t, &Value::isUInt64, &Value::asUInt64>{});
    case ORVEX_INT8:
      return visit(ArgType<ORVEX_INT8, int8_t, &Value::isInt, &Value::asInt64>{});
    case ORVEX_INT16:
      return visit(ArgType<ORVEX_INT16, int16_t, &Value::isInt, &Value::asInt64>{});
    case ORVEX_INT32:
      return visit(ArgType<ORVEX_INT32, int32_t, &Value::isInt, &Value::asInt64>{});
    case ORVEX_INT64:
      return visit(ArgType<ORVEX_INT64, int64_t, &Value::isInt64, &Value::asInt64>{});
    case ORVEX_DOUBLE:
      return visit(ArgType<ORVEX_DOUBLE, double, &Value::isDouble, &Value::asDouble>{});
    case ORVEX_STRING:
      return visit(ArgType<ORVEX_STRING, std::string, &Value::isString, &Value::asString>{});
    case ORVEX_BOOLEAN:
      return visit(ArgType<ORVEX_BOOLEAN, bool, &Value::isBool, &Value::asBool>{});
    case ORVEX_ENUM:
      return visit(ArgType<ORVEX_ENUM, int32_t, &Value::isInt, &Value::asInt>{});
    case ORVEX_BNRY_BLB:
      return visit(ArgType<ORVEX_BNRY_BLB, std::string, &Value::isString, &Value::asString>{});
    default:
      return otherwise;
  }
}

// The lines of one decoder, each with the type's name. Every path has words of its own, which stay.
struct PathWording {
  const char* mismatch;
  const char* out_of_range;
};

// Reads `json` as the row's type and hands the value to `take`. False after a log line when it is
// of another kind or out of range.
template <typename Row, typename Take>
bool ReadValue(Row /*row*/, const Json::Value& json, const std::string& type_name,
               const PathWording& wording, Take take) {
  if (!Row::Fits(json)) {
    LOG_AT(kAlways, wording.mismatch, type_name.c_str());
    return false;
  }
  auto wide = Row::ReadWide(json);
  if (!Row::InRange(wide)) {
    LOG_AT(kAlways, wording.out_of_range, type_name.c_str());
    return false;
  }
  take(static_cast<typename Row::Value>(std::move(wide)));
  return true;
}

// The same into a holder of its own; null after a log line.
template <typename Row>
std::shared_ptr<ValuesInterface> ReadHolder(Row row, const Json::Value& json,
                                            const std::string& type_name,
                                            const PathWording& wording) {
  std::shared_ptr<ValuesInterface> holder;
  ReadValue(row, json, type_name, wording, [&holder](typename Row::Value&& value) {
    holder = std::make_shared<ParamValues<typename Row::Value>>(std::move(value));
  });
  return holder;
}
