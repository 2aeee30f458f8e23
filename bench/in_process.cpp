// Measures decoding in one process. Each line of the standard input has a function and typed
// arguments. The first argument of the program is the time for each row in seconds. The program
// prints one sample a line, with times in us:
//
//   FUNCTION BYTES PARSE DECODE RELEASE DECODE/PARSE
//
// Parsing and decoding are timed alternately with the same message, so their ratio is valid on a
// busy machine too.

#include <json/reader.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "common.h"
#include "orvex_args.h"

namespace {

void Require(bool condition, const char* what) {
  if (!condition) {
    std::cerr << "bench_in_process: " << what << '\n';
    std::quick_exit(1);
  }
}

template <typename Work>
double Microseconds(Work work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
      .count();
}

template <typename Work>
void Repeat(double seconds, Work work) {
  for (double left = seconds * 1e6; left >= 0;) {
    left -= Microseconds(work);
  }
}

void Parse(const std::string& message, Json::Value& request) {
  static Json::Reader reader;  // reused, as in the library
  Require(reader.parse(message.data(), message.data() + message.size(), request),
          "the message does not parse");
}

template <typename Map>
void DeleteMembers(const ValuesInterface& holder) {
  delete static_cast<const ParamValues<Map*>&>(holder).value;
}

// Frees the arguments as the library does after the task, and member maps as the service does.
void Release(const orvex_func_call_info_t& info) {
  const auto& [key, entry] = *info.typed_queue->begin();
  if (entry.first == ORVEX_STRUCT) {
    DeleteMembers<orvex_typed_map_t>(*entry.second);
    DeleteMembers<orvex_value_map_t>(*info.value_queue->at(key));
  }
  ClearParamsFromQueues(info);
}

void SampleDecoding(const char* name, const std::string& message) {
  struct Task {
    Json::Value request;
    orvex_func_call_info_t info{};
  };
  std::vector<Task> tasks(std::max<std::size_t>(1, 16000 / message.size()));
  const auto each = [&tasks](auto work) {
    return Microseconds([&] { std::for_each(tasks.begin(), tasks.end(), work); }) /
           static_cast<double>(tasks.size());
  };
  const double parse = each([&](Task& task) { Parse(message, task.request); });
  const double decode = each([](Task& task) {
    Require(AddParamsToQueues(task.request, &task.info) == 0, "the arguments are refused");
  });
  const double release = each([](const Task& task) { Release(task.info); });
  std::printf("%s\t%zu\t%f\t%f\t%f\t%f\n", name, message.size(), parse, decode, release,
              decode / parse);
}

}  // namespace

int main(int /*argc*/, char** argv) {
  const double seconds = std::stod(argv[1]);
  for (std::string text; std::getline(std::cin, text);) {
    std::istringstream line(text);
    const std::string message = bench::TaskMessage(line, 100000000);
    const std::string name = text.substr(0, text.find(' '));
    Repeat(seconds, [&] { SampleDecoding(name.c_str(), message); });
  }
}
