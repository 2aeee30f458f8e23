// What decoding a long vector costs, relative to parsing its message, and how it grows.

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "orvex_args.h"

namespace {

struct ElementType {
  const char* name;
  const char* element;
};
constexpr ElementType kElementTypes[] = {
    {"uint8", "200"},         {"uint64", "18446744073709551615"},
    {"int32", "-2147483648"}, {"double", "0.5"},
    {"boolean", "true"},      {"string", "\"a text of some length\""}};
constexpr int kSize = 50000;
constexpr int kRepetitions = 9;

// A message with one argument: the vector, or a struct whose one member it is.
std::string Message(const ElementType& type, int size, bool in_struct) {
  std::string list;
  for (int i = 0; i < size; ++i) {
    list += std::string(i == 0 ? "" : ",") + type.element;
  }
  const std::string vector = std::string(R"({"id":1,"type":"vector","vec_type":")") + type.name +
                             R"(","value":[)" + list + "]}";
  return R"({"req_type":"exec_task","func":{"name":"f","num_of_args":1,"args":[)" +
         (in_struct ? R"({"type":"struct","members":[)" + vector + "]}" : vector) + "]}}";
}

void Require(bool condition, const char* what) {
  if (!condition) {
    static_cast<void>(fprintf(stderr, "decode_bench: %s\n", what));
    exit(1);
  }
}

template <typename Work>
double Milliseconds(Work work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
      .count();
}

// Includes what the service does afterwards: releasing what was decoded.
void DecodeAndRelease(Json::Value& request, bool in_struct) {
  orvex_func_call_info_t info{};
  Require(AddParamsToQueues(request, &info) == 0, "the message was refused");
  const int key = in_struct ? 0 : 1;
  std::shared_ptr<ValuesInterface> typed = info.typed_queue->at(key).second;
  std::shared_ptr<ValuesInterface> values = info.value_queue->at(key);
  ClearParamsFromQueues(info);
  if (in_struct) {
    delete static_cast<ParamValues<orvex_typed_map_t*>&>(*typed).value;
    delete static_cast<ParamValues<orvex_value_map_t*>&>(*values).value;
  }
}

struct Times {
  double parse;
  double decode;
};

// Medians, in milliseconds; both are measured in turn, so that a busy machine burdens them alike.
Times Measure(const ElementType& type, int size, bool in_struct) {
  const std::string message = Message(type, size, in_struct);
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  std::vector<double> parse;
  std::vector<double> decode;
  for (int i = 0; i < kRepetitions; ++i) {
    Json::Value request;
    parse.push_back(Milliseconds([&] {
      Require(reader->parse(message.data(), message.data() + message.size(), &request, nullptr),
              "the message does not parse");
    }));
    decode.push_back(Milliseconds([&] { DecodeAndRelease(request, in_struct); }));
  }
  const auto median = [](std::vector<double>& times) {
    std::nth_element(times.begin(), times.begin() + kRepetitions / 2, times.end());
    return times[kRepetitions / 2];
  };
  return {median(parse), median(decode)};
}

}  // namespace

int main() {
  for (const bool in_struct : {false, true}) {
    printf("%s of %d elements\n", in_struct ? "Vector members" : "Vector arguments", kSize);
    printf("  %-8s %10s %10s %14s   time per element, 10000 = 1:  50000  250000\n", "type",
           "parse ms", "decode ms", "decode/parse");
    for (const ElementType& type : kElementTypes) {
      const double small = Measure(type, kSize / 5, in_struct).decode;
      const Times times = Measure(type, kSize, in_struct);
      const double large = Measure(type, kSize * 5, in_struct).decode;
      printf("  %-8s %10.2f %10.2f %14.2f %37.2f %7.2f\n", type.name, times.parse, times.decode,
             times.decode / times.parse, times.decode / small / 5, large / small / 25);
    }
  }
}
