#include "decode_by_hand.h"

#include <limits>
#include <stdexcept>

namespace bench {
namespace {

void Require(bool condition) {
  if (!condition) {
    throw std::runtime_error("not one of the benchmark's arguments");
  }
}

template <typename T>
T Unsigned(const Json::Value& arg) {
  const Json::Value& value = arg["value"];
  Require(value.isUInt64() && value.asUInt64() <= std::numeric_limits<T>::max());
  return static_cast<T>(value.asUInt64());
}

template <typename T>
T Signed(const Json::Value& arg) {
  const Json::Value& value = arg["value"];
  Require(value.isInt64() && value.asInt64() >= std::numeric_limits<T>::min() &&
          value.asInt64() <= std::numeric_limits<T>::max());
  return static_cast<T>(value.asInt64());
}

std::string Text(const Json::Value& arg) {
  Require(arg["value"].isString());
  return arg["value"].asString();
}

Scalars DecodeScalars(const Json::Value& args) {
  auto arg = args.begin();
  Require(args.size() == 10);
  Scalars scalars{};
  scalars.u8 = Unsigned<uint8_t>(*arg);
  scalars.u16 = Unsigned<uint16_t>(*++arg);
  scalars.u32 = Unsigned<uint32_t>(*++arg);
  scalars.u64 = Unsigned<uint64_t>(*++arg);
  scalars.i8 = Signed<int8_t>(*++arg);
  scalars.i16 = Signed<int16_t>(*++arg);
  scalars.i32 = Signed<int32_t>(*++arg);
  Require((*++arg)["value"].isDouble());
  scalars.real = (*arg)["value"].asDouble();
  scalars.text = Text(*++arg);
  Require((*++arg)["value"].isBool());
  scalars.flag = (*arg)["value"].asBool();
  return scalars;
}

std::vector<int32_t> DecodeMembers(const Json::Value& args) {
  std::vector<int32_t> members;
  for (const Json::Value& member : args[0]["members"]) {
    members.push_back(Signed<int32_t>(member));
  }
  return members;
}

template <typename T, auto Test, auto Read>
std::vector<T> DecodeVector(const Json::Value& args) {
  const Json::Value& list = args[0]["value"];
  std::vector<T> elements;
  elements.reserve(list.size());
  for (const Json::Value& element : list) {
    Require((element.*Test)());
    elements.push_back((element.*Read)());
  }
  return elements;
}

}  // namespace

HandArguments DecodeByHand(const Json::Value& func) {
  const std::string shape = func["name"].asString();
  const Json::Value& args = func["args"];
  HandArguments decoded;
  if (shape == "scalars") {
    decoded.scalars.push_back(DecodeScalars(args));
  } else if (shape == "struct") {
    decoded.members = DecodeMembers(args);
  } else if (shape == "uint32s") {
    decoded.unsigneds = DecodeVector<uint32_t, &Json::Value::isUInt, &Json::Value::asUInt>(args);
  } else if (shape == "int32s") {
    decoded.integers = DecodeVector<int32_t, &Json::Value::isInt, &Json::Value::asInt>(args);
  } else if (shape == "string") {
    decoded.text = Text(args[0]);
  } else {
    Require(args.empty());
  }
  return decoded;
}

int CountDecoded(const HandArguments& args) {
  return static_cast<int>(args.scalars.size() * 10 + args.members.size() + args.unsigneds.size() +
                          args.integers.size() + args.text.size());
}

}  // namespace bench
