// Runs the decoders of arguments, of vectors and of vectors in structs on any JSON.

#include <json/value.h>

#include "harness.h"
#include "link/message_parser.h"
#include "support/taken_args.h"

namespace {

template <typename Decode>
void Try(const orvex_func_call_info_t& info, Decode decode) {
  try {
    decode();
  } catch (const Json::Exception&) {
  }
  TakeArgs(info);
}

}  // namespace

void TryInput(const std::string& input) {
  Json::Value json;
  orvex_func_call_info_t task{};
  Try(task, [&] {
    if (orvd_client::ParseMessage(input.data(), input.size(), json)) {
      const int result = AddParamsToQueues(json, &task);
      Require(result == 0 || result == -1, "result");
      const size_t queued = task.typed_queue != nullptr ? task.typed_queue->size() : 0;
      Require(result != 0 || queued <= static_cast<size_t>(task.num_of_args), "entry count");
    }
  });
  ClearParamsFromQueues(task);
  orvex_value_map_t values;
  orvex_typed_map_t typed;
  orvex_func_call_info_t vectors{"", 0, &values, &typed};
  Try(vectors, [&] {
    const int result = AddVectorParams(json, 0, 1, &vectors);
    Require(result == 0 || typed.count(1) == 0, "no entry for a refused vector");
  });
  Try(vectors, [&] {
    const int result = AddStructVectorParams(json, 0, 2, &typed, &values);
    Require(result == 0 || typed.count(2) == 0, "no entry for a refused member");
  });
}
