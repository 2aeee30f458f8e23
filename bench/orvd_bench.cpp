// Measures services over the real socket. One uses the library and is compared with two
// hand-written baselines. One uses the C++ layer and is compared with a service on the raw
// interface of the library. All are connected at the same time. The services of a mode are measured
// alternately, on the same processor as this driver. Other load on the machine therefore affects
// all of them. The program writes the times as JSON, and report.py prints the table.
//
//   orvd_bench ROUNDS PERCENT [MODES]
//
// Each round starts new processes. PERCENT scales the number of operations of each mode. Only modes
// whose names begin with MODES are run.

#include <json/value.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>

#include "measured_runs.h"
#include "orvex_simulator/json_text.h"
#include "wire.h"

namespace {

using bench::MeasuredRun;
using bench::Shape;
using bench::Tasks;

constexpr int kRuns = 5;  // of each mode with each service, in each round

// The services that a mode compares.
enum Compared : unsigned {
  kLibrary = 1,   // library and baseline
  kDecoding = 2,  // library, baseline and decoding baseline
  kLayer = 4,     // layer and raw service
};

struct Mode {
  const char* name;
  int operations;  // of each service, in each round
  std::function<bench::Seconds(const MeasuredRun&)> perform;
  Compared compared = kLibrary;
  bool one_at_a_time = false;  // the latency of each operation is recorded
};

// The answers of the services that read their arguments. See task_messages.cpp for the values.
constexpr const char* kSumOfScalars = R"("func":{"sum":2000030394,"done":true})";
constexpr const char* kSumOfMembers = R"("func":{"sum":-50001225,"done":true})";

std::vector<Mode> ModesThatBeginWith(const std::string& beginning) {
  std::vector<Mode> modes = {
      {"no arguments", 20000, Tasks(Shape::kNone, 0, 1), kLibrary, true},
      {"no arguments, 8 outstanding", 20000, Tasks(Shape::kNone, 0, 8)},
      {"no arguments, 64 outstanding", 20000, Tasks(Shape::kNone, 0, 64)},
      {"10 scalars", 20000, Tasks(Shape::kScalars, 10, 1), kDecoding, true},
      {"10 scalars, 8 outstanding", 10000, Tasks(Shape::kScalars, 10, 8), kDecoding},
      {"10 scalars, 64 outstanding", 10000, Tasks(Shape::kScalars, 10, 64), kDecoding},
      {"struct of 50", 5000, Tasks(Shape::kStruct, 50, 1), kDecoding, true},
      {"struct of 50, 8 outstanding", 5000, Tasks(Shape::kStruct, 50, 8), kDecoding},
      {"struct of 50, 64 outstanding", 5000, Tasks(Shape::kStruct, 50, 64), kDecoding},
      {"vector of 10,000 uint32", 200, Tasks(Shape::kUint32s, 10000, 1), kDecoding, true},
      {"vector of 50,000 int32", 50, Tasks(Shape::kInt32s, 50000, 1), kDecoding, true},
      {"string of 200 kB", 1000, Tasks(Shape::kString, 200000, 1), kDecoding, true},
      {"session of 1 pair", 5000, [](const MeasuredRun& run) { return CycleSessions(run, 1); }},
      {"session of 64 pairs", 1000, [](const MeasuredRun& run) { return CycleSessions(run, 64); }},
      {"notification", 20000, bench::Notify},
      {"permission query", 10000, [](const MeasuredRun& run) { return AnswerQueries(run, 1); }},
      {"permission query, 16 items", 5000,
       [](const MeasuredRun& run) { return AnswerQueries(run, 16); }},
      {"register and ready", 1000, bench::AnswerOffers},
      {"layer, 10 scalars", 20000, Tasks(Shape::kScalars, 10, 1, kSumOfScalars), kLayer, true},
      {"layer, 10 scalars, 8 outstanding", 10000, Tasks(Shape::kScalars, 10, 8, kSumOfScalars),
       kLayer},
      {"layer, struct of 50", 5000, Tasks(Shape::kStruct, bench::kMembers, 1, kSumOfMembers),
       kLayer, true},
      {"layer, struct of 50, 8 outstanding", 5000,
       Tasks(Shape::kStruct, bench::kMembers, 8, kSumOfMembers), kLayer},
  };
  modes.erase(std::remove_if(modes.begin(), modes.end(),
                             [&beginning](const Mode& mode) {
                               return std::string(mode.name).rfind(beginning, 0) != 0;
                             }),
              modes.end());
  return modes;
}

struct Service {
  const char* name;
  const char* program;
  const char* option;
  bool decodes;
  unsigned takes_part;  // in the modes that compare one of these
};

constexpr std::array<Service, 5> kServices{{
    {"baseline", "bench_baseline", "", false, kLibrary | kDecoding},
    {"library", "bench_library_service", "", true, kLibrary | kDecoding},
    {"decoding_baseline", "bench_baseline", "decode", true, kDecoding},
    {"raw", "bench_raw_service", "", true, kLayer},
    {"layer", "bench_layer_service", "", true, kLayer},
}};

struct Times {
  std::vector<double> microseconds;  // of one operation; an entry for each round
  std::vector<float> latencies;      // of all operations in all rounds
};

// By mode and service.
using Results = std::map<std::pair<std::string, std::string>, Times>;

// Takes the last of the processors that this process may use: the first one usually handles more
// interrupts.
int PinToOneProcessor() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof(allowed), &allowed);
  int last = 0;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    last = CPU_ISSET(cpu, &allowed) ? cpu : last;
  }
  CPU_ZERO(&allowed);
  CPU_SET(last, &allowed);
  if (sched_setaffinity(0, sizeof(allowed), &allowed) != 0) {
    perror("orvd_bench: sched_setaffinity");
    exit(1);
  }
  return last;
}

bool TakesPart(const Service& service, const Mode& mode) {
  return (service.takes_part & mode.compared) != 0;
}

using Processes = std::array<std::unique_ptr<bench::ServiceProcess>, kServices.size()>;

float Percentile(std::vector<float>& values, std::size_t percent) {
  const auto nth = values.begin() + static_cast<long>(values.size() * percent / 100);
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

// The times of one service in one mode of a round.
struct Taken {
  double seconds = 0;
  std::vector<float> latencies;
};

// For tasks that run one at a time the time is the median latency, which rare interruptions do not
// change.
void Conclude(Taken& taken, int operations, Times& times) {
  times.microseconds.push_back(taken.latencies.empty() ? taken.seconds * 1e6 / operations
                                                       : Percentile(taken.latencies, 50));
  times.latencies.insert(times.latencies.end(), taken.latencies.begin(), taken.latencies.end());
}

void RunMode(const Mode& mode, int percent, const Processes& processes, Results& results) {
  const int operations = std::max(1, mode.operations * percent / 100 / kRuns);
  std::array<Taken, kServices.size()> taken;
  for (std::size_t run = 0; run < kServices.size() * kRuns; ++run) {
    // Every second pass is in reverse order, so that no service always follows the same one.
    const std::size_t pass = run / kServices.size();
    const std::size_t place = run % kServices.size();
    const std::size_t i = pass % 2 == 0 ? place : kServices.size() - 1 - place;
    if (TakesPart(kServices[i], mode)) {
      taken[i].seconds += mode.perform({processes[i]->link(), kServices[i].decodes, operations,
                                        mode.one_at_a_time ? &taken[i].latencies : nullptr})
                              .count();
    }
  }
  for (std::size_t i = 0; i < kServices.size(); ++i) {
    if (TakesPart(kServices[i], mode)) {
      Conclude(taken[i], operations * kRuns, results[{mode.name, kServices[i].name}]);
    }
  }
}

void RunRound(const std::filesystem::path& programs, const std::vector<Mode>& modes,
              orvd::ManagerPeer& manager, int percent, Results& results) {
  Processes processes;
  for (std::size_t i = 0; i < kServices.size(); ++i) {
    processes[i] = std::make_unique<bench::ServiceProcess>(
        manager, std::vector<std::string>{programs / kServices[i].program, kServices[i].option});
  }
  for (const Mode& mode : modes) {
    RunMode(mode, percent, processes, results);
  }
}

Json::Value Percentiles(std::vector<float>& latencies) {
  Json::Value list(Json::arrayValue);
  for (const std::size_t percent : {50U, 90U, 99U}) {
    list.append(Percentile(latencies, percent));
  }
  return list;
}

Json::Value ToJson(const std::vector<Mode>& modes, Results& results) {
  Json::Value rows(Json::arrayValue);
  for (const Mode& mode : modes) {
    Json::Value row;
    row["name"] = mode.name;
    for (const Service& service : kServices) {
      const auto found = results.find({mode.name, service.name});
      if (found == results.end()) {
        continue;
      }
      for (const double time : found->second.microseconds) {
        row["microseconds"][service.name].append(time);
      }
      if (mode.one_at_a_time) {
        row["latencies"][service.name] = Percentiles(found->second.latencies);
      }
    }
    rows.append(row);
  }
  return rows;
}

// The C library returns the end of the heap to the system when it is free, and allocates it again,
// page by page, for the next large message. This can add a quarter to the time of a large message.
// Whether the end of the heap is free depends on chance, so all services keep their freed memory.
void KeepFreedMemory() {
  setenv("MALLOC_TRIM_THRESHOLD_", "1000000000", 1);
  setenv("MALLOC_TOP_PAD_", "50000000", 1);
}

int Run(const std::filesystem::path& programs, int rounds, int percent,
        const std::vector<Mode>& modes) {
  Json::Value report;
  report["processor"] = PinToOneProcessor();
  report["rounds"] = rounds;
  KeepFreedMemory();
  orvd::ManagerPeer manager("/dev/socket/orvd");
  Results results;
  for (int round = 1; round <= rounds; ++round) {
    std::cerr << "round " << round << " of " << rounds << '\n';
    RunRound(programs, modes, manager, percent, results);
  }
  report["modes"] = ToJson(modes, results);
  std::cout << orvd::WriteCompact(report) << '\n';
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    std::cerr << "usage: orvd_bench ROUNDS PERCENT [MODES]\n";
    return 2;
  }
  try {
    return Run(std::filesystem::path(argv[0]).parent_path(), std::stoi(argv[1]), std::stoi(argv[2]),
               ModesThatBeginWith(argc == 4 ? argv[3] : ""));
  } catch (const std::exception& error) {
    std::cerr << "orvd_bench: " << error.what() << '\n';
    return 1;
  }
}
