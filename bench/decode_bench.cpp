// Compares decoding with parsing in one process, for arguments of each shape and of several sizes.
// Both are timed alternately with the same messages, so their ratio is valid on a busy machine too.

#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvex_args.h"
#include "task_messages.h"

namespace {

using bench::Shape;

constexpr std::size_t kBatchBytes = 16000;  // small messages are timed in batches

template <typename Work>
double Seconds(Work work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double Median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<long>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void Parse(const std::string& message, Json::Value& request) {
  static Json::Reader reader;  // reused, as in the library
  if (!reader.parse(message.data(), message.data() + message.size(), request)) {
    throw std::runtime_error("the message does not parse");
  }
}

void Decode(Json::Value& request, orvex_func_call_info_t& info) {
  if (AddParamsToQueues(request, &info) != 0) {
    throw std::runtime_error("the arguments are refused");
  }
}

template <typename Map>
void DeleteMembers(const std::shared_ptr<ValuesInterface>& holder) {
  delete static_cast<const ParamValues<Map*>&>(*holder).value;
}

// Frees the arguments, as the library does after the task. For a struct, deletes the member maps
// first, as the service does.
void Release(const orvex_func_call_info_t& info) {
  const auto& [key, entry] = *info.typed_queue->begin();
  if (entry.first == ORVEX_STRUCT) {
    DeleteMembers<orvex_typed_map_t>(entry.second);
    DeleteMembers<orvex_value_map_t>(info.value_queue->at(key));
  }
  ClearParamsFromQueues(info);
}

struct Samples {
  std::vector<double> parse;
  std::vector<double> decode;
  std::vector<double> release;
  std::vector<double> ratio;
};

void Sample(const std::string& message, std::size_t batch, Samples& samples) {
  std::vector<Json::Value> requests(batch);
  std::vector<orvex_func_call_info_t> infos(batch, orvex_func_call_info_t{});
  const auto number = static_cast<double>(batch);
  samples.parse.push_back(Seconds([&] {
                            for (Json::Value& request : requests) {
                              Parse(message, request);
                            }
                          }) /
                          number);
  samples.decode.push_back(Seconds([&] {
                             for (std::size_t i = 0; i < batch; ++i) {
                               Decode(requests[i], infos[i]);
                             }
                           }) /
                           number);
  samples.release.push_back(Seconds([&] {
                              for (const auto& info : infos) {
                                Release(info);
                              }
                            }) /
                            number);
  samples.ratio.push_back(samples.decode.back() / samples.parse.back());
}

void DecodeArguments(benchmark::State& state, Shape shape, std::size_t bytes) {
  const std::string message =
      bench::TaskMessage(bench::FunctionText(shape, bench::CountFor(shape, bytes)));
  const std::size_t batch = std::max<std::size_t>(1, kBatchBytes / message.size());
  Samples samples;
  for ([[maybe_unused]] auto iteration : state) {
    Sample(message, batch, samples);
  }
  state.counters["bytes"] = static_cast<double>(message.size());
  state.counters["parse_us"] = Median(samples.parse) * 1e6;
  state.counters["decode_us"] = Median(samples.decode) * 1e6;
  state.counters["release_us"] = Median(samples.release) * 1e6;
  state.counters["decode_per_parse"] = Median(samples.ratio);
}

// Runs before main.
[[maybe_unused]] const bool registered = [] {
  for (const Shape shape :
       {Shape::kScalars, Shape::kStruct, Shape::kUint32s, Shape::kInt32s, Shape::kString}) {
    for (const std::size_t bytes : {1000U, 5000U, 20000U, 100000U, 500000U}) {
      const std::string name =
          std::string("decode/") + bench::NameOf(shape) + "/" + std::to_string(bytes);
      benchmark::RegisterBenchmark(name.c_str(), [shape, bytes](benchmark::State& state) {
        DecodeArguments(state, shape, bytes);
      })->UseRealTime();
    }
  }
  return true;
}();

}  // namespace
