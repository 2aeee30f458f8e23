#include "load_arguments.h"

#include <algorithm>
#include <iterator>
#include <map>

#include "orvex_simulator/typed_arguments.h"

namespace orvd {
namespace {

constexpr int kStruct = 16;
constexpr int kVectorOf = 16;

int CodeOf(const std::string& name) {
  static const char* const kNames[] = {"none",   "uint8",   "uint16", "uint32",  "uint64",
                                       "int8",   "int16",   "int32",  "int64",   "double",
                                       "string", "boolean", "enum",   "bnry_blb"};
  const auto* const found = std::find_if(std::begin(kNames), std::end(kNames),
                                         [&](const char* one) { return one == name; });
  return found == std::end(kNames) ? 0 : static_cast<int>(found - std::begin(kNames));
}

void AppendList(std::string& text, const Json::Value& args) {
  std::map<int, const Json::Value*> by_key;
  for (Json::ArrayIndex i = 0; i < args.size(); ++i) {
    const bool is_struct = args[i]["type"] == "struct";
    by_key[is_struct ? static_cast<int>(i) : args[i]["id"].asInt()] = &args[i];
  }
  for (const auto& [key, argument] : by_key) {
    const std::string type = (*argument)["type"].asString();
    if (type == "struct") {
      AppendArgument(text, key, kStruct, Json::arrayValue);
      AppendList(text, (*argument)["members"]);
    } else if (type == "vector") {
      AppendArgument(text, key, kVectorOf + CodeOf((*argument)["vec_type"].asString()),
                     (*argument)["value"]);
    } else {
      AppendArgument(text, key, CodeOf(type), (*argument)["value"]);
    }
  }
}

}  // namespace

Json::Value LoadArguments(std::uint32_t seed) {
  const Json::Value all = GeneratedArguments(seed);
  Json::Value args = all;
  if (seed % 4 != 0) {
    args = Json::arrayValue;
    args.append(all[seed % all.size()]);
  }
  Json::Value own;
  own["id"] = kSeedKey;
  own["type"] = "uint32";
  own["value"] = seed;
  args.append(own);
  return args;
}

// Each value has its length before it, so that different values never make the same text.
void AppendArgument(std::string& text, int key, int type, const Json::Value& value) {
  const auto append = [&text](const Json::Value& one) {
    const std::string content = one.asString();
    text += std::to_string(content.size()) + "'" + content;
  };
  text += std::to_string(key) + ":" + std::to_string(type) + "=";
  if (value.isArray()) {
    std::for_each(value.begin(), value.end(), append);
  } else {
    append(value);
  }
  text += ";";
}

std::string ArgumentsText(const Json::Value& args) {
  std::string text;
  AppendList(text, args);
  return text;
}

// FNV-1a.
std::uint64_t Checksum(const std::string& text) {
  std::uint64_t sum = UINT64_C(14695981039346656037);
  for (const char c : text) {
    sum = (sum ^ static_cast<unsigned char>(c)) * UINT64_C(1099511628211);
  }
  return sum;
}

}  // namespace orvd
