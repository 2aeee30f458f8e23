// Decodes the elements of a vector, for an argument and for a member of a struct.

#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "args/scalar_value.h"
#include "args/type_names.h"
#include "base/json_members.h"

namespace orvd_client {

inline constexpr DecoderTexts kVectorTexts{
    "vector type %s and type of value do not match while parsing",
    "Out of range value receieved for %s"};

template <typename DataType>
bool ReadElements(const DataType& row, const Json::Value& list, const std::string& type_name,
                  std::vector<typename DataType::Value>& elements) {
  elements.reserve(list.size());
  for (const Json::Value& element : AsList(list)) {
    const bool stored = ReadValue(
        row, element, type_name, kVectorTexts,
        [&elements](typename DataType::Value&& value) { elements.push_back(std::move(value)); });
    if (!stored) {
      return false;
    }
  }
  return true;
}

// Decodes "value" as a vector of the named type, and passes the type code and the holder to
// `store`. Returns 0. Returns 0 too if the named type cannot be an element, and then stores
// nothing. Returns -1, after a log line, if an element has another kind or is out of range.
template <typename Store>
int DecodeVector(const Json::Value& vector, const std::string& type_name, Store store) {
  constexpr int kNothingStored = 0;
  return VisitDataType(TypeOfName(type_name), kNothingStored, [&](const auto& row) {
    using Elements = std::vector<typename std::decay_t<decltype(row)>::Value>;
    Elements elements;
    if (!ReadElements(row, vector["value"], type_name, elements)) {
      return -1;
    }
    store(ORVEX_VECTOR_OF(row.code), std::make_shared<ParamValues<Elements>>(std::move(elements)));
    return 0;
  });
}

inline constexpr const char* kNoElementType = "none";

inline std::string ElementTypeName(const Json::Value& vector) {
  return TextMember(vector, "vec_type", kNoElementType);
}

}  // namespace orvd_client
