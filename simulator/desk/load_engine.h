// Drives a service for `orvd-sim load`: one thread, one loop.

#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "load_answer.h"
#include "load_ledger.h"
#include "load_link.h"
#include "load_process.h"
#include "load_sessions.h"
#include "load_statistics.h"
#include "load_tasks.h"
#include "stop_signals.h"

namespace orvd {

struct LoadOptions {
  std::string path;
  std::vector<TaskText> tasks;
  std::optional<std::uint32_t> opcode;  // only this one
  std::int64_t outstanding = 32;
  std::int64_t sessions = 4;
  std::int64_t seconds = 0;       // 0: without limit
  std::int64_t count = 0;         // 0: without limit
  std::int64_t churn = 0;         // seconds; 0: off
  std::vector<std::string> ways;  // of ending the connection, in turn
  std::int64_t answer_limit = 30;
  std::int64_t wait = 60;
  bool notify = false;
  bool check = false;
};

inline constexpr const char* kWays[] = {"close", "half-close", "empty", "reset", "absent"};

struct LoadResult {
  LoadCounts counts;
  Latencies latencies;
  double seconds = 0;         // from the first task to the last answer
  double longest_pause = 0;   // seconds without an answer while tasks were outstanding
  double longest_return = 0;  // seconds from the end of a connection to the next ready session
  std::optional<int> pid;     // of the last process; 0 if the kernel does not tell
  int processes = 0;          // that have connected
  std::optional<ProcessState> before;  // of the last process, before its first task
  std::optional<ProcessState> after;   // and without outstanding tasks, at the end
  std::optional<MemoryGrowth> growth;  // of its memory
  double service_cpu = 0;              // of all processes
  double own_cpu = 0;
  std::string problem;  // why the run ended early
};

class Load {
 public:
  using Clock = std::chrono::steady_clock;

  Load(const LoadOptions& options, const StopSignals& stop);

  LoadResult Run();

 private:
  // --- The loop.
  bool Over() const;
  bool Turn();
  bool AwaitService();
  void Settle();
  void Drain();
  void Tick(Clock::time_point now);
  void Sample();
  void PrintProgress(Clock::time_point now);

  // --- Receiving.
  void ReadAll();
  void Take(std::string_view message);
  void TakeAnswer(const ScannedAnswer& answer, std::string_view message);
  void TakeOther(const std::string& message);
  void TakeRequest(const Json::Value& request);
  bool Fits(const SentTask& task, const ScannedAnswer& answer, std::string_view message) const;

  // --- Sending.
  void SendTasks(Clock::time_point now);
  void Notify(std::uint32_t session);

  // --- Ending the connection.
  void RenewSession();
  void EndLink();
  void AwaitEnd();
  void LoseLink();

  const LoadOptions& options_;
  const StopSignals& stop_;
  LoadResult result_;
  LoadCounts& counts_ = result_.counts;
  LoadLink link_;
  Ledger ledger_;
  Sessions sessions_;
  std::map<std::uint32_t, std::vector<std::uint32_t>> registered_;  // opcode, subsystems

  bool draining_ = false;
  bool pausing_ = false;  // sends no tasks, because the connection is to end
  bool ending_ = false;   // the connection ends because of this program
  std::string last_end_;  // how it ended
  std::size_t next_task_ = 0;
  std::uint64_t notified_ = 0;  // on this connection
  std::size_t ended_ = 0;       // connections ended here
  std::size_t renewed_ = 0;     // sessions
  Clock::time_point begin_;
  Clock::time_point last_answer_;
  Clock::time_point unready_since_;
  Clock::time_point away_since_;  // the end of the last connection
  Clock::time_point next_tick_;
  Clock::time_point next_sample_;
  Clock::time_point next_progress_;
  Clock::time_point next_end_;
  Clock::time_point next_renewal_;
  std::uint64_t shown_ = 0;  // answers at the last progress line
  MemoryRecord memory_;
  double cpu_before_ = 0;   // of this process of the service, at its first sight
  double cpu_earlier_ = 0;  // of earlier processes
};

}  // namespace orvd
