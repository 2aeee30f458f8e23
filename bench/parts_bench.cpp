// Measures the parts of a small task separately.

#include <android-base/properties.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/value.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "task_messages.h"

namespace {

const std::string& SmallTask() {
  static const std::string text = bench::TaskMessage(bench::FunctionText(bench::Shape::kNone, 0));
  return text;
}

void ParseTask(benchmark::State& state) {
  Json::Reader reader;
  for ([[maybe_unused]] auto iteration : state) {
    Json::Value message;
    benchmark::DoNotOptimize(
        reader.parse(SmallTask().data(), SmallTask().data() + SmallTask().size(), message));
  }
}
BENCHMARK(ParseTask)->Name("part/parse, and destroy the tree");

// --- Threads that post a semaphore and end; state.range(0) threads at a time.

sem_t g_done;

void* SayDone(void* /*ignored*/) {
  sem_post(&g_done);
  return nullptr;
}

template <typename Start>
void RunThreads(benchmark::State& state, Start start) {
  sem_init(&g_done, 0, 0);
  const auto at_a_time = state.range(0);
  for ([[maybe_unused]] auto iteration : state) {
    for (int64_t i = 0; i < at_a_time; ++i) {
      start();
    }
    for (int64_t i = 0; i < at_a_time; ++i) {
      sem_wait(&g_done);
    }
  }
  state.SetItemsProcessed(state.iterations() * at_a_time);
}

void StandardThread(benchmark::State& state) {
  RunThreads(state, [] { std::thread(SayDone, nullptr).detach(); });
}
BENCHMARK(StandardThread)->Name("part/std::thread")->Arg(1)->Arg(8)->Arg(64)->UseRealTime();

void ThreadWithSmallStack(benchmark::State& state) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, 1U << 20);
  RunThreads(state, [&attributes] {
    pthread_t thread{};
    pthread_create(&thread, &attributes, SayDone, nullptr);
  });
  pthread_attr_destroy(&attributes);
}
BENCHMARK(ThreadWithSmallStack)
    ->Name("part/thread with 1 MiB of stack")
    ->Arg(1)
    ->Arg(8)
    ->Arg(64)
    ->UseRealTime();

void SendAndReceive(benchmark::State& state) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
    state.SkipWithError("no socket pair");
    return;
  }
  std::vector<char> buffer(524288);
  for ([[maybe_unused]] auto iteration : state) {
    benchmark::DoNotOptimize(send(ends[0], SmallTask().data(), SmallTask().size(), 0));
    benchmark::DoNotOptimize(recv(ends[1], buffer.data(), buffer.size(), 0));
  }
}
BENCHMARK(SendAndReceive)->Name("part/send and receive, no waiting receiver");

void LogLine(benchmark::State& state) {
  __android_log_set_logger([](const __android_logger_data* /*data*/, const char* /*text*/) {});
  for ([[maybe_unused]] auto iteration : state) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "client Sending message %.*s", 250,
                        SmallTask().c_str());
  }
  __android_log_set_logger(__android_log_stderr_logger);
}
BENCHMARK(LogLine)->Name("part/format a log line without writing it");

void ReadProperty(benchmark::State& state) {
  for ([[maybe_unused]] auto iteration : state) {
    benchmark::DoNotOptimize(
        android::base::GetBoolProperty("vendor.orvex.mgr.latency_measure", false));
  }
}
BENCHMARK(ReadProperty)->Name("part/read a property");

}  // namespace
