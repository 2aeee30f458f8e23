#include "load_report.h"

#include <array>
#include <cstdio>

namespace orvd {
namespace {

constexpr std::array kShares{0.5, 0.9, 0.99};
constexpr long kGrownMemory = 2048;  // kB. Less can be the allocator's
constexpr long kGrownCount = 4;      // more may be made at the first use of something
constexpr std::array kShareNames{"p50", "p90", "p99"};

std::string Number(const char* format, double number) {
  std::array<char, 64> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), format, number));
  return text.data();
}

std::string Count(std::uint64_t count, const char* what) {
  return std::to_string(count) + " " + what;
}

double InMilliseconds(std::chrono::nanoseconds duration) {
  return static_cast<double>(duration.count()) / 1e6;
}

double Rate(const LoadResult& result) {
  return result.seconds > 0 ? static_cast<double>(result.counts.answered) / result.seconds : 0;
}

std::string TaskLine(const LoadCounts& counts) {
  return "tasks: " + Count(counts.sent, "sent, ") + Count(counts.answered, "answered, ") +
         Count(counts.failed, "of these failed, ") + Count(counts.rejected, "rejected, ") +
         Count(counts.missing, "missing, ") + Count(counts.duplicate, "duplicate, ") +
         Count(counts.lost, "lost with the connection, ") + Count(counts.late, "late, ") +
         Count(counts.wrong, "wrong\n");
}

std::string LatencyLine(const Latencies& latencies) {
  std::string line = "latency in ms:";
  for (std::size_t i = 0; i < kShares.size(); ++i) {
    line += std::string(" ") + kShareNames[i] + " " +
            Number("%.3f", InMilliseconds(latencies.At(kShares[i]))) + ",";
  }
  return line + " max " + Number("%.3f", InMilliseconds(latencies.largest())) + "\n";
}

std::string ConnectionLine(const LoadCounts& counts) {
  std::string line = "connection:";
  for (const auto& [way, count] : counts.ends) {
    line += " ended " + Count(static_cast<std::uint64_t>(count), "times by ") + way + ",";
  }
  return line + " left " + Count(counts.left, "times by the service");
}

std::string NotMeasured(const LoadResult& result) {
  return result.before ? "not measured, the run ended early"
                       : "not known, /proc does not show the service";
}

std::string ServiceLine(const LoadResult& result) {
  if (!result.pid) {
    return "service: none has connected\n";
  }
  const std::string processes = result.processes > 1
                                    ? ", the last of " + std::to_string(result.processes) +
                                          " processes; memory, threads and descriptors are of it"
                                    : "";
  std::string line = "service: process " + std::to_string(*result.pid) + processes + "\n";
  if (!result.before || !result.after) {
    return line + "memory, threads and descriptors: " + NotMeasured(result) + "\n";
  }
  const auto change = [](const char* name, long before, long after, const char* unit) {
    return std::string(name) + std::to_string(before) + unit + " before, " + std::to_string(after) +
           unit + " after";
  };
  const std::string growth =
      result.growth ? Number(", %+.1f %% from the second quarter of the time to the last one",
                             result.growth->percent)
                    : "";
  line += change("memory: ", result.before->memory, result.after->memory, " kB") + growth + "\n";
  line += change("threads: ", result.before->threads, result.after->threads, "") + "\n";
  if (result.before->descriptors < 0 || result.after->descriptors < 0) {
    return line + "descriptors: not permitted to read them\n";
  }
  return line + change("descriptors: ", result.before->descriptors, result.after->descriptors, "") +
         "\n";
}

void JudgeGrowth(const LoadResult& result, const Demands& demands,
                 std::vector<std::string>& problems) {
  if (!result.before || !result.after) {
    if (demands.strict && result.pid) {
      problems.push_back("the growth of the service: " + NotMeasured(result));
    }
    return;
  }
  const auto judge = [&](long before, long after, const char* what) {
    if (after - before > (demands.strict ? 0 : kGrownCount)) {
      problems.push_back("the service has " + std::to_string(after - before) + " more " + what +
                         " than before");
    }
  };
  judge(result.before->threads, result.after->threads, "threads");
  judge(result.before->descriptors, result.after->descriptors, "descriptors");
  const MemoryGrowth memory = result.growth.value_or(MemoryGrowth());
  if (memory.kilobytes >= kGrownMemory && memory.percent > demands.growth) {
    problems.push_back("the memory of the service grew by " + Number("%.1f %%", memory.percent) +
                       ", the limit is " + Number("%g %%", demands.growth));
  }
}

Json::Value StateJson(const std::optional<ProcessState>& state) {
  Json::Value json;
  if (state) {
    json["memory_kb"] = static_cast<Json::Int64>(state->memory);
    json["threads"] = static_cast<Json::Int64>(state->threads);
    json["descriptors"] = static_cast<Json::Int64>(state->descriptors);
  }
  return json;
}

}  // namespace

std::vector<std::string> Problems(const LoadResult& result, const Demands& demands) {
  const LoadCounts& counts = result.counts;
  std::vector<std::string> problems;
  const auto count = [&](std::uint64_t number, const char* what) {
    if (number != 0) {
      problems.push_back(what + (": " + std::to_string(number)));
    }
  };
  if (!result.problem.empty()) {
    problems.push_back(result.problem);
  }
  if (counts.answered == 0) {
    problems.emplace_back("no task was answered");
  }
  if (counts.answered != 0 && counts.failed == counts.answered) {
    problems.emplace_back("all tasks failed");
  }
  count(counts.missing, "missing answers");
  count(counts.duplicate, "double answers, or answers of tasks that must not run");
  count(counts.wrong, "answers that do not fit their tasks");
  count(counts.silent, "session messages without an answer");
  if (demands.check) {
    count(counts.failed, "answers that are failures");
  }
  JudgeGrowth(result, demands, problems);
  return problems;
}

std::string Summary(const LoadResult& result, const std::vector<std::string>& problems) {
  const LoadCounts& counts = result.counts;
  std::string text = TaskLine(counts);
  text += "rate: " + Number("%.0f tasks a second", Rate(result)) +
          Number(" over %.1f s", result.seconds) +
          Number(", longest pause between answers %.3f s\n", result.longest_pause);
  text += LatencyLine(result.latencies);
  text +=
      "sessions: " + Count(counts.sessions, "pairs started, ") + Count(counts.refused, "refused\n");
  text += "also: " + Count(counts.queries, "queries answered, ") +
          Count(counts.notifications, "notifications sent, ") +
          Count(counts.others, "other messages received\n");
  text += ConnectionLine(counts) + Number(", longest way back %.3f s\n", result.longest_return) +
          ServiceLine(result);
  text += "processor time: " + Number("service %.2f s, ", result.service_cpu) +
          Number("load %.2f s\n", result.own_cpu);
  for (const std::string& problem : problems) {
    text += "FAILED: " + problem + "\n";
  }
  return text + (problems.empty() ? "as expected\n" : "");
}

Json::Value SummaryJson(const LoadResult& result, const std::vector<std::string>& problems) {
  const LoadCounts& counts = result.counts;
  const std::pair<const char*, std::uint64_t> numbers[] = {{"sent", counts.sent},
                                                           {"answered", counts.answered},
                                                           {"failed", counts.failed},
                                                           {"rejected", counts.rejected},
                                                           {"missing", counts.missing},
                                                           {"duplicate", counts.duplicate},
                                                           {"lost", counts.lost},
                                                           {"late", counts.late},
                                                           {"wrong", counts.wrong},
                                                           {"pairs_started", counts.sessions},
                                                           {"pairs_refused", counts.refused},
                                                           {"sessions_silent", counts.silent},
                                                           {"queries", counts.queries},
                                                           {"notifications", counts.notifications},
                                                           {"other_messages", counts.others},
                                                           {"left_by_service", counts.left}};
  Json::Value json;
  for (const auto& [name, number] : numbers) {
    json[name] = static_cast<Json::UInt64>(number);
  }
  json["ended_by"] = Json::objectValue;
  for (const auto& [way, count] : counts.ends) {
    json["ended_by"][way] = count;
  }
  json["seconds"] = result.seconds;
  json["tasks_per_second"] = Rate(result);
  json["longest_pause_seconds"] = result.longest_pause;
  for (std::size_t i = 0; i < kShares.size(); ++i) {
    json["latency_ms"][kShareNames[i]] = InMilliseconds(result.latencies.At(kShares[i]));
  }
  json["latency_ms"]["max"] = InMilliseconds(result.latencies.largest());
  json["longest_return_seconds"] = result.longest_return;
  json["service"]["pid"] = result.pid ? Json::Value(*result.pid) : Json::Value();
  json["service"]["processes"] = result.processes;
  json["service"]["before"] = StateJson(result.before);
  json["service"]["after"] = StateJson(result.after);
  json["service"]["memory_growth_percent"] =
      result.growth ? Json::Value(result.growth->percent) : Json::Value();
  json["cpu_seconds"]["service"] = result.service_cpu;
  json["cpu_seconds"]["load"] = result.own_cpu;
  json["problems"] = Json::arrayValue;
  for (const std::string& problem : problems) {
    json["problems"].append(problem);
  }
  return json;
}

}  // namespace orvd
