// Decodes the elements of a vector: the same for an argument and for a member of a struct.

#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "args/arg_types.h"
#include "args/type_names.h"
#include "link/json_members.h"

inline constexpr PathWording kVectorWording{
    "vector type %s and type of value do not match while parsing",
    "Out of range value receieved for %s"};

template <typename Row>
bool ReadElements(Row row, const Json::Value& list, const std::string& type_name,
                  std::vector<typename Row::Value>& elements) {
  elements.reserve(list.size());
  for (const Json::Value& element : AsList(list)) {
    const bool taken = ReadValue(
        row, element, type_name, kVectorWording,
        [&elements](typename Row::Value&& value) { elements.push_back(std::move(value)); });
    if (!taken) {
      return false;
    }
  }
  return true;
}

// Decodes "value" as a vector of the named type and hands (type code, holder) to `store`. Returns
// 0, also when the name is of no element type and nothing is stored; -1 after a log line for an
// element that does not fit.
template <typename Store>
int DecodeVector(const Json::Value& vector, const std::string& type_name, Store store) {
  constexpr int kNothingStored = 0;
  return VisitArgType(TypeOfName(type_name), kNothingStored, [&](auto row) {
    using Elements = std::vector<typename decltype(row)::Value>;
    Elements elements;
    if (!ReadElements(row, vector["value"], type_name, elements)) {
      return -1;
    }
    store(ORVEX_VECTOR_OF(row.kCode), std::make_shared<ParamValues<Elements>>(std::move(elements)));
    return 0;
  });
}

inline constexpr const char* kNoElementType = "none";

inline std::string ElementTypeName(const Json::Value& vector) {
  return TextMember(vector, "vec_type", kNoElementType);
}
