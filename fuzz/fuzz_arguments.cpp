// The argument walk, with its vector and struct decoders, on any JSON.

#include <json/json.h>

#include "harness.h"
#include "link/message_parser.h"

namespace {

void DecodeAsTask(Json::Value request) {
  orvex_func_call_info_t info{};
  try {
    const int result = AddParamsToQueues(request, &info);
    Require(result == 0 || result == -1, "result");
    const auto queued = info.typed_queue != nullptr ? info.typed_queue->size() : 0;
    Require(result != 0 || queued <= static_cast<size_t>(info.num_of_args), "one entry each");
  } catch (const Json::Exception&) {
  }
  ReadAllArguments(info);
  ClearParamsFromQueues(info);
}

template <typename Decode>
void DecodeAsVector(Json::Value& value, Decode decode) {
  orvex_typed_map_t typed;
  orvex_value_map_t values;
  orvex_func_call_info_t info{"", 0, &values, &typed};
  try {
    Require(decode(value, &info) == 0 || typed.empty(), "nothing of a vector that is refused");
  } catch (const Json::Exception&) {
  }
  ReadAllArguments(info);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Json::Value value;
  try {
    if (!ParseMessage(reinterpret_cast<const char*>(data), size, value)) {
      return 0;
    }
  } catch (const Json::RuntimeError&) {
    return 0;
  }
  DecodeAsTask(value);
  DecodeAsVector(value, [](Json::Value& arg, orvex_func_call_info_t* info) {
    return AddVectorParams(arg, 0, 3, info);
  });
  DecodeAsVector(value, [](Json::Value& member, orvex_func_call_info_t* info) {
    return AddStructVectorParams(member, 0, 3, info->typed_queue, info->value_queue);
  });
  return 0;
}
