// Measures decoding and the parts of a small task in one process. Each line of the standard input
// has a function and typed arguments. The first argument of the program is the time for each row in
// seconds. The program prints one sample a line, with times in us:
//
//   FUNCTION BYTES PARSE DECODE RELEASE DECODE/PARSE
//   PART AT_A_TIME EACH
//
// Parsing and decoding are timed alternately with the same message, so their ratio is valid on a
// busy machine too.

#include <android-base/properties.h>
#include <android/log.h>
#include <json/reader.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <thread>

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

template <typename Work>
void MeasurePart(double seconds, const char* name, Work work, int at_a_time = 1) {
  constexpr int kBatch = 100;
  Repeat(seconds, [&] {
    const double taken = Microseconds([&] {
      for (int i = 0; i < kBatch; ++i) {
        work();
      }
    });
    std::printf("%s\t%d\t%f\n", name, at_a_time, taken / kBatch / at_a_time);
  });
}

template <typename Start>
void MeasureThreads(double seconds, const char* name, sem_t& ended, Start start) {
  for (const int at_a_time : {1, 8, 64}) {
    const auto run_threads = [&] {
      for (int i = 0; i < at_a_time; ++i) {
        start();
      }
      for (int i = 0; i < at_a_time; ++i) {
        sem_wait(&ended);
      }
    };
    MeasurePart(seconds, name, run_threads, at_a_time);
  }
}

void* PostSemaphore(void* semaphore) {
  sem_post(static_cast<sem_t*>(semaphore));
  return nullptr;
}

void MeasureParts(double seconds) {
  std::istringstream line("none");
  const std::string task = bench::TaskMessage(line, 100000000);
  MeasurePart(seconds, "parse, and destroy the tree", [&task] {
    Json::Value message;
    Parse(task, message);
  });
  static sem_t ended;
  sem_init(&ended, 0, 0);
  MeasureThreads(seconds, "std::thread", ended,
                 [] { std::thread(PostSemaphore, &ended).detach(); });
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, 1U << 20);
  MeasureThreads(seconds, "thread with 1 MiB of stack", ended, [&attributes] {
    pthread_t thread{};
    pthread_create(&thread, &attributes, PostSemaphore, &ended);
  });
  std::array<int, 2> ends{};
  Require(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()) == 0, "no socket pair");
  std::vector<char> buffer(524288);
  MeasurePart(seconds, "send and receive, nobody waiting", [&] {
    send(ends[0], task.data(), task.size(), 0);
    Require(recv(ends[1], buffer.data(), buffer.size(), 0) > 0, "cannot receive");
  });
  __android_log_set_logger([](const __android_logger_data* /*data*/, const char* /*text*/) {});
  MeasurePart(seconds, "format a log line, written nowhere", [&task] {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "client Sending message %.*s", 250,
                        task.c_str());
  });
  MeasurePart(seconds, "read a property",
              [] { android::base::GetBoolProperty("vendor.orvex.mgr.latency_measure", false); });
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
  MeasureParts(seconds);
}
