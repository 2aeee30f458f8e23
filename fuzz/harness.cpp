#include "harness.h"

#include <json/json.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "IOrvdClient.h"
#include "args/arg_types.h"
#include "link/dispatch.h"
#include "link/message_parser.h"
#include "link/state.h"
#include "registration/ready_table.h"
#include "sessions/session_table.h"

// What a refused task leaves allocated on purpose, and nothing else.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:NewCallRecord\nleak:AddStructParams\n";
}

namespace {

constexpr int32_t kServiceId = 7;

std::atomic<bool> sends_fail{false};
std::atomic<int> queries_sent{0};
std::atomic<int> answers{0};
std::atomic<int> refused_tasks{0};
std::atomic<size_t> values_read{0};  // a sum, so that no read is left out
thread_local bool handles_packets = false;

int OnState(int service_id, orvd_req_t* req, void* user_data) {
  Require(user_data == &sends_fail, "foreign user data");
  Require(req->type >= ORVD_TERMINATED && req->type <= ORVD_SYSTEM_SETTING_CHANGE, "event");
  const size_t texts = req->permission.size() + req->state.size() + req->package.size();
  return service_id != kServiceId || texts > 100 || req->ssid == 2 ? 1 : 0;
}

int OnTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  ReadAllArguments(args);
#ifdef ORVEX_FUZZ_PLANT
  const std::vector<char> planted(64);
  const size_t index = call->transac_id > 9 ? planted.size() : 0;
  call->status = planted[index];
#endif
  call->name = args.func_name;
  call->result = call->transac_id == 3 ? "-1" : "\"done\":1";
  return 0;
}

// A caller on another thread may hold it for a moment.
void CheckFree(Mutex& mutex, const char* what) {
  constexpr int kTries = 10000;
  int tries = 0;
  while (!mutex.native().try_lock()) {
    Require(++tries < kTries, what);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  mutex.native().unlock();
}

// Reads all of it.
template <typename Value>
void Touch(const Value& value) {
  values_read += std::hash<Value>()(value);
}

template <typename Row>
void ReadVector(Row /*row*/, const ValuesInterface& holder) {
  for (const auto& element :
       static_cast<const ParamValues<std::vector<typename Row::Value>>&>(holder).value) {
    Touch<typename Row::Value>(element);
  }
}

template <typename Row>
void ReadScalar(Row /*row*/, const ValuesInterface& holder) {
  Touch(static_cast<const ParamValues<typename Row::Value>&>(holder).value);
}

void ReadQueues(const orvex_typed_map_t& typed, const orvex_value_map_t& values, bool in_struct);

void TakeStruct(const ValuesInterface& typed_holder, const ValuesInterface& value_holder) {
  const std::unique_ptr<orvex_typed_map_t> typed(
      static_cast<const ParamValues<orvex_typed_map_t*>&>(typed_holder).value);
  const std::unique_ptr<orvex_value_map_t> values(
      static_cast<const ParamValues<orvex_value_map_t*>&>(value_holder).value);
  ReadQueues(*typed, *values, true);
}

void ReadQueues(const orvex_typed_map_t& typed, const orvex_value_map_t& values, bool in_struct) {
  Require(typed.size() == values.size(), "queues of one size");
  for (const auto& [key, entry] : typed) {
    const auto& [code, holder] = entry;
    const auto value = values.find(key);
    Require(value != values.end(), "one key in both queues");
    if (code == ORVEX_STRUCT && !in_struct) {
      TakeStruct(*holder, *value->second);
      continue;
    }
    Require(holder == value->second, "one holder in both queues");
    const bool is_vector = code > ORVEX_STRUCT;
    const auto element = static_cast<orvex_data_type_t>(is_vector ? code - ORVEX_STRUCT : code);
    const bool known = VisitArgType(element, false, [&, &shared = *holder](auto row) {
      is_vector ? ReadVector(row, shared) : ReadScalar(row, shared);
      return true;
    });
    Require(known, "a type that has values");
  }
}

bool Dispatched(Json::Value& message) {
  try {
    Dispatch(message);
    return true;
  } catch (const Json::Exception&) {
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  } catch (const std::system_error&) {
  }
  return false;
}

}  // namespace

extern "C" int __android_log_print(int /*prio*/, const char* tag, const char* fmt, ...) {
  char text[512];
  va_list args;
  va_start(args, fmt);
  const int length = vsnprintf(text, sizeof(text), fmt, args);
  va_end(args);
  Require(tag == nullptr && length >= 0, "log line");
  refused_tasks += strcmp(text, "Failed to handle execute task event") == 0 ? 1 : 0;
  return length;
}

extern "C" ssize_t sendto(int /*fd*/, const void* data, size_t size, int /*flags*/,
                          const sockaddr* /*address*/, socklen_t /*length*/) {
  const std::string text(static_cast<const char*>(data), size);
  const bool is_query = text.find(R"("QueryId":)") != std::string::npos && !handles_packets;
  queries_sent += is_query ? 1 : 0;
  answers += is_query || handles_packets ? 0 : 1;
  return sends_fail ? -1 : static_cast<ssize_t>(size);
}

void Require(bool holds, const char* what) {
  if (!holds) {
    static_cast<void>(fprintf(stderr, "does not hold: %s\n", what));
    abort();
  }
}

void MakeSendsFail(bool fail) {
  sends_fail = fail;
}

int QueriesSent() {
  return queries_sent;
}

void ResetService() {
  handles_packets = true;
  gDebugLevel = kProgress;
  {
    const MutexLock lock(gStateMutex);
    gService_id = kServiceId;
  }
  {
    const MutexLock lock(gInitMutex);
    response_for_init = false;
  }
  supported_services_clear();
  for (const auto& [opcode, ssid] : {std::pair{kOpcode, 1U}, {kOpcode, 2U}, {kOtherOpcode, 1U}}) {
    supported_services_add(opcode, ssid);
  }
  ClearReadyTable();
  {
    const MutexLock lock(TheReadyTable().mutex);
    TheReadyTable().opcodes[kOpcode] = {std::make_shared<int32_t>(1),
                                        std::make_shared<std::condition_variable>(),
                                        std::make_shared<bool>(false),
                                        OnState,
                                        &sends_fail,
                                        OnTask};
  }
  const MutexLock lock(Sessions().mutex);
  Sessions().sessions = {{kSession, {0, {{{kOpcode, 1}, ORVD_READY}}}}};
}

bool Handle(const char* packet, size_t size) {
  Json::Value message;
  try {
    if (!ParseMessage(packet, size, message)) {
      return true;
    }
  } catch (const Json::RuntimeError&) {  // nested too deeply
    return false;
  }
  const Json::Value req_type = message["req_type"];
  const bool is_task = req_type.isString() && req_type.asString() == "exec_task";
  const int answered_before = answers;
  const int refused_before = refused_tasks;
  const bool dispatched = Dispatched(message);
  while (is_task && dispatched && refused_tasks == refused_before && answers == answered_before) {
    std::this_thread::yield();
  }
  return dispatched;
}

void CheckService() {
  CheckFree(gStateMutex, "library state is unlocked");
  CheckFree(gInitMutex, "init is unlocked");
  CheckFree(Sessions().mutex, "sessions are unlocked");
  CheckFree(TheReadyTable().mutex, "the ready table is unlocked");
  const MutexLock lock(Sessions().mutex);
  for (const auto& [session_id, session] : Sessions().sessions) {
    for (const auto& [pair, state] : session.pairs) {
      Require(is_service_supported(pair.first, pair.second), "an open pair is supported");
      Require(state == ORVD_STARTED || state == ORVD_READY, "the state of a pair");
    }
  }
  const MutexLock ready_lock(TheReadyTable().mutex);
  for (const auto& [opcode, entry] : TheReadyTable().opcodes) {
    Require(opcode == kOpcode || opcode == kOtherOpcode, "nothing else becomes ready");
    Require(entry.status && entry.cv && entry.received, "a whole entry");
  }
}

void ReadAllArguments(const orvex_func_call_info_t& args) {
  Require((args.typed_queue == nullptr) == (args.value_queue == nullptr), "both queues or none");
  if (args.typed_queue != nullptr) {
    ReadQueues(*args.typed_queue, *args.value_queue, false);
  }
}
