#include "sessions/exec_task.h"

#include <android-base/properties.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

#include "IOrvdClient.h"
#include "base/detached_thread.h"
#include "base/json_members.h"
#include "base/log.h"
#include "registration/ready_table.h"
#include "sessions/session_table.h"

using namespace orvd_client;

namespace {

struct TaskAddress {
  uint32_t session_id;
  SessionPair pair;
};

TaskAddress ReadAddress(const Json::Value& msg) {
  const uint32_t opcode = FromHex(TextMember(msg, "opcode", "0x0"));
  const uint32_t subsys_id = UintMember(msg, "subsys_id");
  return {UintMember(msg, "session_id"), {opcode, subsys_id}};
}

// Both processes read the same clock. The arithmetic is unsigned, because the Manager may send any
// start time.
void LogLatency(const Json::Value& msg) {
  const Json::Value* member = FindMember(msg, "start_time");
  const int64_t start_ms = member != nullptr ? member->asInt64() : 0;
  const int64_t now_ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                             std::chrono::steady_clock::now().time_since_epoch())
                             .count();
  const uint64_t taken_ns =
      static_cast<uint64_t>(now_ns) - static_cast<uint64_t>(start_ms) * UINT64_C(1000000);
  LOG_INFO("Time taken from ORVEX mgr to PLIX: %lldms",
           static_cast<long long>(static_cast<int64_t>(taken_ns) / 1000000));
}

bool IsReady(const TaskAddress& address) {
  const auto [opcode, ssid] = address.pair;
  const MutexLock lock(Sessions().mutex);
  SessionPairs* pairs = FindSession(address.session_id);
  if (pairs == nullptr) {
    LOG_AT(kFailure, "Invalid session_id was passed to execute function %d",
           static_cast<int>(address.session_id));
    return false;
  }
  const orvd_start_state* state = FindPair(pairs, address.pair);
  if (state == nullptr) {
    LOG_AT(kFailure, "No Session %u with 0x%08x::%u", address.session_id, opcode, ssid);
    return false;
  }
  if (*state != ORVD_READY) {
    LOG_AT(kFailure, "Session %u with 0x%08x::%u not ready", address.session_id, opcode, ssid);
    return false;
  }
  return true;
}

_orvex_call_info_t* NewCallRecord(const TaskAddress& address, int32_t transac_id) {
  void* memory = calloc(1, sizeof(_orvex_call_info_t));
  if (memory == nullptr) {
    LOG_AT(kFailure, "Out of memory");
    return nullptr;
  }
  auto* call = new (memory) _orvex_call_info_t{};
  call->session_id = address.session_id;
  call->subsys_id = address.pair.second;
  call->transac_id = transac_id;
  return call;
}

void FreeCallRecord(_orvex_call_info_t* call) {
  call->~_orvex_call_info_t();
  free(call);
}

// Everything that a task thread takes ownership of.
struct Task {
  Task(_orvex_call_info_t* its_call, orvd_task_function_t its_function)
      : call(its_call), function(its_function) {}
  ~Task() { ClearParamsFromQueues(args); }
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  _orvex_call_info_t* call;
  orvd_task_function_t function;
  orvex_func_call_info_t args{};
};

void* RunTask(void* argument) {
  const std::unique_ptr<Task> task(static_cast<Task*>(argument));
  calling_wrapper(task->call, task->function, std::exchange(task->args, {}));
  return nullptr;
}

void StartTask(std::unique_ptr<Task> task) {
  const int error = StartDetachedTaskThread(RunTask, task.get());
  if (error != 0) {
    throw std::system_error(error, std::system_category(), "thread constructor failed");
  }
  static_cast<void>(task.release());
}

// Deliberate: the opcode is hexadecimal text here, as in the messages that open the session. The
// answers to AUTH and REDY have decimal text, because they repeat the number that the library sent.
int ExecuteTask(Json::Value& message) {
  const auto entry = FindReadyEntry(FromHex(TextMember(message, "opcode", "0")));
  return entry ? handle_exec_task(message, entry->task_function) : -1;
}

}  // namespace

void orvd_client::HandleExecTask(Json::Value& message) {
  if (ExecuteTask(message) != 0) {
    LOG_AT(kFailure, "Failed to handle execute task event");
  }
}

int handle_exec_task(Json::Value& msg, orvd_task_function_t task) {
  const TaskAddress address = ReadAddress(msg);
  if (android::base::GetBoolProperty("vendor.orvex.mgr.latency_measure", false)) {
    LogLatency(msg);
  }
  if (!IsReady(address) || task == nullptr) {
    return -1;
  }
  _orvex_call_info_t* call = NewCallRecord(address, IntMember(msg, "transac_id", 0));
  if (call == nullptr) {
    return -1;
  }
  auto started = std::make_unique<Task>(call, task);
  if (AddParamsToQueues(msg, &started->args) != 0) {
    // Deliberate: the call record of a rejected task is not freed. The arguments are freed.
    return -1;  // NOLINT(clang-analyzer-unix.Malloc)
  }
  StartTask(std::move(started));
  return 0;
}

void calling_wrapper(_orvex_call_info_t* call, orvd_task_function_t task,
                     orvex_func_call_info_t args) {
  task(call, args);
  ClearParamsFromQueues(args);
  orvd_send_response(call, "");
  FreeCallRecord(call);
}
