#include "task_messages.h"

#include <functional>
#include <iterator>

namespace bench {
namespace {

constexpr const char* kNames[] = {"none", "scalars", "struct", "uint32s", "int32s", "string"};

constexpr const char* kTenScalars[] = {R"("uint8","value":200)",
                                       R"("uint16","value":60000)",
                                       R"("uint32","value":4000000000)",
                                       R"("uint64","value":18446744073709551615)",
                                       R"("int8","value":-100)",
                                       R"("int16","value":-30000)",
                                       R"("int32","value":-2000000000)",
                                       R"("double","value":273.15)",
                                       R"("string","value":"a text of some length")",
                                       R"("boolean","value":true)"};

constexpr const char* kHead =
    R"({"req_type":"exec_task","opcode":"0x0000a001","subsys_id":1,"session_id":1,"transac_id":)";

using Element = std::function<std::string(std::size_t index)>;

std::string List(std::size_t count, const Element& element) {
  std::string list = "[";
  for (std::size_t i = 0; i < count; ++i) {
    list += (i == 0 ? "" : ",") + element(i);
  }
  return list + "]";
}

std::string Scalar(std::size_t index) {
  return R"({"id":)" + std::to_string(index) + R"(,"type":)" +
         kTenScalars[index % std::size(kTenScalars)] + "}";
}

std::string Member(std::size_t index) {
  return R"({"id":)" + std::to_string(index) + R"(,"type":"int32","value":)" +
         std::to_string(-1000000 - static_cast<int>(index)) + "}";
}

std::string Vector(const char* type, const std::string& elements) {
  return std::string(R"([{"id":1,"type":"vector","vec_type":")") + type + R"(","value":)" +
         elements + "}]";
}

// All numbers have the same length.
std::string Unsigned(std::size_t index) {
  return std::to_string(1000000000U + static_cast<uint32_t>(index) * 58711U);
}

std::string Integer(std::size_t index) {
  return std::to_string(-10000000 - static_cast<int>(index % 1000) * 79999);
}

std::string Arguments(Shape shape, std::size_t count) {
  switch (shape) {
    case Shape::kScalars:
      return List(count, Scalar);
    case Shape::kStruct:
      return R"([{"type":"struct","members":)" + List(count, Member) + "}]";
    case Shape::kUint32s:
      return Vector("uint32", List(count, Unsigned));
    case Shape::kInt32s:
      return Vector("int32", List(count, Integer));
    case Shape::kString:
      return R"([{"id":1,"type":"string","value":")" + std::string(count, 's') + R"("}])";
    default:
      return "[]";
  }
}

}  // namespace

const char* NameOf(Shape shape) {
  return kNames[static_cast<std::size_t>(shape)];
}

std::string FunctionText(Shape shape, std::size_t count) {
  const std::size_t arguments = shape == Shape::kScalars ? count : shape == Shape::kNone ? 0 : 1;
  return std::string(R"({"name":")") + NameOf(shape) + R"(","num_of_args":)" +
         std::to_string(arguments) + R"(,"args":)" + Arguments(shape, count) + "}";
}

std::string TaskMessage(const std::string& function_text) {
  return kHead + std::string(kTransactionDigits, '1') + R"(,"func":)" + function_text + "}";
}

std::size_t TransactionOffset() {
  return std::string(kHead).size();
}

std::size_t CountFor(Shape shape, std::size_t bytes) {
  constexpr std::size_t kSample = 1000;
  const double per_unit =
      static_cast<double>(FunctionText(shape, kSample).size()) / static_cast<double>(kSample);
  const auto count = static_cast<std::size_t>(static_cast<double>(bytes) / per_unit);
  return shape == Shape::kScalars ? count / 10 * 10 + 10 : count;
}

}  // namespace bench
