#include "harness.h"

#include <json/value.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/log.h"
#include "client/dispatch.h"
#include "client/svc_init.h"
#include "link/message_parser.h"
#include "link/service_id.h"
#include "registration/ready_table.h"
#include "sessions/session_table.h"
#include "support/taken_args.h"

using namespace orvd_client;

// The allocations that a refused task never frees, on purpose. All other leaks are reported.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:NewCallRecord\nleak:AddStructParams\n";
}

namespace {

std::mutex counts_mutex;
std::condition_variable counted;
std::atomic<int> messages[3];     // for each role of the sender; a refused task counts as answered
std::atomic<size_t> values_read;  // a sum, so that the compiler keeps every read

void Touch(std::string_view text) {
  values_read += std::hash<std::string_view>()(text);
}

void Count(Role sender) {
  const std::lock_guard lock(counts_mutex);
  ++messages[sender];
  counted.notify_all();
}

int OnTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  Touch(TakeArgs(args));
#ifdef ORVEX_FUZZ_PLANT
  const std::vector<char> planted(64);
  const size_t index = call->transac_id > 10 ? planted.size() : 0;
  call->status = planted[index];
#endif
  call->name = args.func_name;
  call->result = call->transac_id == 3 ? "-1" : "\"done\":1";
  return 0;
}

void ResetService() {
  role = kHandlesPackets;
  gDebugLevel = kProgress;
  supported_services_clear();
  for (const auto& [opcode, ssid] : {std::pair{kOpcode, 1U}, {kOpcode, 2U}, {kOtherOpcode, 1U}}) {
    supported_services_add(opcode, ssid);
  }
  ready_meta_data entry{std::make_shared<int32_t>(), std::make_shared<std::condition_variable>(),
                        std::make_shared<bool>()};
  entry.state_callback = OnState;
  entry.user_data = &sends_fail;
  entry.task_function = OnTask;
  const MutexLock session_lock(Sessions().mutex);
  Sessions().sessions = {{kSession, {CurrentGeneration(), {{{kOpcode, 1}, ORVD_READY}}}}};
  const MutexLock ready_lock(TheReadyTable().mutex);
  TheReadyTable().opcodes = {{kOpcode, entry}};
  const MutexLock state_lock(gStateMutex);
  gService_id = kServiceId;
  gServiceGeneration = CurrentGeneration();
}

// Blocks forever when a mutex is still locked.
void CheckService() {
  const MutexLock init_lock(gInitMutex);
  const MutexLock session_lock(Sessions().mutex);
  for (const auto& [session_id, session] : Sessions().sessions) {
    for (const auto& [pair, state] : session.pairs) {
      Require(is_service_supported(pair.first, pair.second), "an open pair is supported");
      Require(state == ORVD_STARTED || state == ORVD_READY, "the state of a pair");
    }
  }
  const MutexLock ready_lock(TheReadyTable().mutex);
  for (const auto& [opcode, entry] : TheReadyTable().opcodes) {
    Require(opcode == kOpcode || opcode == kOtherOpcode, "no other opcode is ready");
    Require(entry.status && entry.cv && entry.received, "a complete entry");
  }
  const MutexLock state_lock(gStateMutex);
}

}  // namespace

extern "C" int __android_log_print(int /*prio*/, const char* tag, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  const int length = vsnprintf(nullptr, 0, fmt, args);
  va_end(args);
  Require(tag == nullptr && length >= 0, "log line");
  if (std::string_view(fmt) == "Failed to handle execute task event") {
    Count(kRunsTask);
  }
  return length;
}

extern "C" ssize_t sendto(int /*fd*/, const void* data, size_t size, int /*flags*/,
                          const sockaddr* /*address*/, socklen_t /*length*/) {
  Touch(std::string_view(static_cast<const char*>(data), size));
  Count(role);
  return sends_fail ? -1 : static_cast<ssize_t>(size);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ResetService();
  TryInput({reinterpret_cast<const char*>(data), size});
  return 0;
}

void Require(bool holds, const char* what) {
  if (!holds) {
    static_cast<void>(fprintf(stderr, "check failed: %s\n", what));
    abort();
  }
}

int OnState(int service_id, orvd_req_t* req, void* user_data) {
  Require(user_data == &sends_fail, "unknown user data");
  Require(req->type >= ORVD_TERMINATED && req->type <= ORVD_SYSTEM_SETTING_CHANGE, "event");
  Touch(req->permission + req->state + req->package);
  return service_id != kServiceId || req->ssid == 2 ? 1 : 0;
}

void Handle(const std::string& packet) {
  try {
    Json::Value message;
    if (ParseMessage(packet.data(), packet.size(), message)) {
      const bool is_task = message.get("req_type", "") == "exec_task";
      const auto dispatch = [&message] { Dispatch(message); };
      is_task ? AwaitMessage(kRunsTask, dispatch) : dispatch();
    }
  } catch (const Json::Exception&) {
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  } catch (const std::system_error&) {
  }
  CheckService();
}

void AwaitMessage(Role sender, const std::function<void()>& act) {
  const int before = messages[sender];
  act();
  std::unique_lock lock(counts_mutex);
  counted.wait(lock, [&] { return messages[sender] != before; });
}
