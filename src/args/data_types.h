// The list of the data types: the name in a message, the type code, and how a JSON value of the
// type is tested, read and checked for its range.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "orvex_args.h"

namespace orvd_client {

// A type with values of the C++ type T. `Test` and `Read` are the member functions of Json::Value
// that test the kind of a value and read it.
template <typename T, auto Test, auto Read>
struct Row {
  using Value = T;
  using JsonNumber = decltype((std::declval<const Json::Value&>().*Read)());

  std::string_view name{};
  orvex_data_type_t code{};

  // jsoncpp cannot read 8-bit and 16-bit numbers, so small integers are read as 64-bit numbers and
  // checked here. Unsigned ones are read as signed: jsoncpp stores most numbers as signed, and
  // would check them again when it reads them as unsigned.
  static constexpr bool kHasRangeCheck = std::is_integral_v<T> && sizeof(T) < sizeof(JsonNumber);

  static bool HasKind(const Json::Value& json) { return (json.*Test)(); }
  static JsonNumber ReadJson(const Json::Value& json) { return (json.*Read)(); }
  static bool IsInRange([[maybe_unused]] const JsonNumber& number) {
    if constexpr (kHasRangeCheck) {
      return number >= static_cast<JsonNumber>(std::numeric_limits<T>::min()) &&
             number <= static_cast<JsonNumber>(std::numeric_limits<T>::max());
    } else {
      return true;
    }
  }
};

// A type without a scalar value.
struct RowWithoutValue {
  std::string_view name{};
  orvex_data_type_t code{};
};

template <typename T>
using SmallUnsigned = Row<T, &Json::Value::isUInt, &Json::Value::asInt64>;
template <typename T>
using SmallSigned = Row<T, &Json::Value::isInt, &Json::Value::asInt64>;
using Text = Row<std::string, &Json::Value::isString, &Json::Value::asString>;

inline constexpr std::tuple kDataTypes{
    RowWithoutValue{"none", ORVEX_NONE},
    SmallUnsigned<uint8_t>{"uint8", ORVEX_UINT8},
    SmallUnsigned<uint16_t>{"uint16", ORVEX_UINT16},
    SmallUnsigned<uint32_t>{"uint32", ORVEX_UINT32},
    Row<uint64_t, &Json::Value::isUInt64, &Json::Value::asUInt64>{"uint64", ORVEX_UINT64},
    SmallSigned<int8_t>{"int8", ORVEX_INT8},
    SmallSigned<int16_t>{"int16", ORVEX_INT16},
    SmallSigned<int32_t>{"int32", ORVEX_INT32},
    Row<int64_t, &Json::Value::isInt64, &Json::Value::asInt64>{"int64", ORVEX_INT64},
    Row<double, &Json::Value::isDouble, &Json::Value::asDouble>{"double", ORVEX_DOUBLE},
    Text{"string", ORVEX_STRING},
    Row<bool, &Json::Value::isBool, &Json::Value::asBool>{"boolean", ORVEX_BOOLEAN},
    Row<int32_t, &Json::Value::isInt, &Json::Value::asInt>{"enum", ORVEX_ENUM},
    Text{"bnry_blb", ORVEX_BNRY_BLB},
    RowWithoutValue{"cb", ORVEX_CB},
    RowWithoutValue{"vector", ORVEX_VECTOR},
    RowWithoutValue{"struct", ORVEX_STRUCT},
};

// Calls `visit` with the row of `type`, and returns its result. Returns `without_value` if the type
// has no scalar value.
template <typename Visit, typename Result>
Result VisitDataType(orvex_data_type_t type, Result without_value, Visit visit) {
  Result result = without_value;
  const auto visit_if_same = [&](const auto& row) {
    if constexpr (!std::is_same_v<std::decay_t<decltype(row)>, RowWithoutValue>) {
      if (row.code == type) {
        result = visit(row);
      }
    }
    return row.code == type;
  };
  std::apply([&](const auto&... rows) { return (visit_if_same(rows) || ...); }, kDataTypes);
  return result;
}

}  // namespace orvd_client
