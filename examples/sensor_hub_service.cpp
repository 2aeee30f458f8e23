// An example service: a sensor hub. Copy this file and replace the functions. SIGTERM and SIGINT
// end the process.

#include <json/writer.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "IOrvdClient.h"

namespace {

constexpr uint32_t kOpcode = 0xa001;
constexpr const char* kOpcodeText = "0x0000a001";
constexpr int kReconnected = SIGHUP;  // this signal and the next one are sent to the main thread
constexpr int kGaveUp = SIGUSR1;
constexpr unsigned kOfferLimit = 30;  // seconds

// Marker, version 2, and the description of this API for the Manager.
constexpr const char* kApiDefinition =
    "\x01ORVEX\x01\x02"
    R"({"Orvex":{"opcode":"0xa001","subsystems":[{"id":1,"name":"thermal"},{"id":2,"name":"motion"}],)"
    R"("functions":["read_temperature","set_limits","average","configure","check_access"]}})";

struct Hub {
  std::atomic<int> service_id{-1};
  std::atomic<int> open_sessions{0};
};

// Returns the argument under `key`. Returns null if there is none, or if it has another type.
template <typename T>
const T* Find(const orvex_typed_map_t* queue, int key, orvex_data_type_t type) {
  if (queue == nullptr || queue->count(key) == 0 || queue->at(key).first != type) {
    return nullptr;
  }
  return &static_cast<const ParamValues<T>&>(*queue->at(key).second).value;
}

// The library never deletes the member maps of structs. The service must delete them, even if it
// does not read them.
void DeleteMemberMaps(const orvex_func_call_info_t& args) {
  if (args.typed_queue == nullptr) {
    return;
  }
  for (const auto& [key, entry] : *args.typed_queue) {
    if (entry.first == ORVEX_STRUCT) {
      delete static_cast<const ParamValues<orvex_typed_map_t*>&>(*entry.second).value;
      delete static_cast<const ParamValues<orvex_value_map_t*>&>(*args.value_queue->at(key)).value;
    }
  }
}

// Returns `text` escaped and in quotation marks, because the library does not escape texts.
std::string Quoted(const std::string& text) {
  return Json::valueToQuotedString(text.c_str());
}

// The same without the quotation marks, for texts that the library puts between quotation marks.
std::string Escaped(const std::string& text) {
  const std::string quoted = Quoted(text);
  return quoted.substr(1, quoted.size() - 2);
}

// The functions write the body of the answer. They return false if they cannot use the arguments.

bool ReadTemperature(std::string& body) {
  body = R"("celsius":21.5,"sensor":"skin")";
  return true;
}

bool SetLimits(const orvex_func_call_info_t& args, std::string& body) {
  const auto* sensor = Find<uint8_t>(args.typed_queue, 1, ORVEX_UINT8);
  const auto* limit = Find<int16_t>(args.typed_queue, 2, ORVEX_INT16);
  const auto* period_ms = Find<uint32_t>(args.typed_queue, 3, ORVEX_UINT32);
  const auto* label = Find<std::string>(args.typed_queue, 4, ORVEX_STRING);
  if (sensor == nullptr || limit == nullptr || period_ms == nullptr || label == nullptr) {
    return false;
  }
  body = R"("sensor":)" + std::to_string(*sensor) + R"(,"limit":)" + std::to_string(*limit) +
         R"(,"period_ms":)" + std::to_string(*period_ms) + R"(,"label":)" + Quoted(*label);
  return true;
}

bool Average(const orvex_func_call_info_t& args, std::string& body) {
  const auto* samples =
      Find<std::vector<double>>(args.typed_queue, 1, ORVEX_VECTOR_OF(ORVEX_DOUBLE));
  if (samples == nullptr || samples->empty()) {
    return false;
  }
  const double sum = std::accumulate(samples->begin(), samples->end(), 0.0);
  body = R"("average":)" + std::to_string(sum / static_cast<double>(samples->size())) +
         R"(,"count":)" + std::to_string(samples->size());
  return true;
}

// The key of a struct is its position in the argument list, here 0.
bool Configure(const orvex_func_call_info_t& args, std::string& body) {
  auto* const* members = Find<orvex_typed_map_t*>(args.typed_queue, 0, ORVEX_STRUCT);
  if (members == nullptr) {
    return false;
  }
  const auto* name = Find<std::string>(*members, 1, ORVEX_STRING);
  const auto* rate = Find<uint16_t>(*members, 2, ORVEX_UINT16);
  const auto* axes = Find<std::vector<int32_t>>(*members, 3, ORVEX_VECTOR_OF(ORVEX_INT32));
  if (name == nullptr || rate == nullptr || axes == nullptr) {
    return false;
  }
  body = R"("name":)" + Quoted(*name) + R"(,"rate":)" + std::to_string(*rate) + R"(,"axes":)" +
         std::to_string(axes->size());
  return true;
}

// Asks the Manager and waits for the answer. A task may do so, because it has its own thread.
bool CheckAccess(const orvex_func_call_info_t& args, std::string& body) {
  const auto* session = Find<uint32_t>(args.typed_queue, 1, ORVEX_UINT32);
  const std::vector<bool> granted =
      session != nullptr ? orvd_permission_query(*session, {"sensor.read"}) : std::vector<bool>();
  if (granted.size() != 1) {  // the session argument is missing, or no answer within 3 seconds
    return false;
  }
  std::string client = "unknown";
  for (const std::string& info : orvd_info_query(*session, {"client.name"})) {
    parse_result_of_query_info(info, client);
  }
  body = R"("granted":)" + std::to_string(granted[0] ? 1 : 0) + R"(,"client":)" + Quoted(client) +
         R"(,"watched":)" + std::to_string(orvd_info_monitor(*session, {"screen"}).size());
  return true;
}

bool RunFunction(const orvex_func_call_info_t& args, std::string& body) {
  const auto named = [&args](const char* name) { return args.func_name == name; };
  return (named("read_temperature") && ReadTemperature(body)) ||
         (named("set_limits") && SetLimits(args, body)) ||
         (named("average") && Average(args, body)) ||
         (named("configure") && Configure(args, body)) ||
         (named("check_access") && CheckAccess(args, body));
}

// Runs one task. Any number of tasks run at the same time, each on its own thread.
int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  call->opcode = kOpcodeText;
  call->name = Escaped(args.func_name);  // this text comes from the client, so it is not trusted
  if (!RunFunction(args, call->result)) {
    call->result = "-1";
    call->ret = -1;
  }
  DeleteMemberMaps(args);
  return 0;
}

// Called on the library's receive thread, so it must not wait for the Manager.
int OnEvent(int /*service_id*/, orvd_req_t* req, void* user_data) {
  auto* hub = static_cast<Hub*>(user_data);
  if (req->type == ORVD_SESSION_START) {
    ++hub->open_sessions;
  } else if (req->type == ORVD_SESSION_END) {
    --hub->open_sessions;
  } else if (req->type == ORVD_RECONNECTED) {
    kill(getpid(), kReconnected);  // the main thread initialises again
  }
  printf("hub: event %d, %d open sessions\n", req->type, hub->open_sessions.load());
  return 0;
}

// These calls wait for the Manager without limit. The alarm ends the process if the Manager dies
// meanwhile.
void Offer(Hub& hub) {
  alarm(kOfferLimit);  // ends the process; init then starts it again
  hub.service_id = orvd_svc_init();
  const auto id = static_cast<uint32_t>(hub.service_id);
  if (hub.service_id < 0 ||
      _orvd_svc_register_auth(id, kOpcode, kApiDefinition, "sensor-hub-token") != 0 ||
      _orvd_svc_ready(id, kOpcode, OnEvent, &hub, RunTask) != 0) {
    printf("hub: the Manager is away or refuses\n");
    kill(getpid(), kGaveUp);
  }
  alarm(0);
}

}  // namespace

int main() {
  static_cast<void>(setvbuf(stdout, nullptr, _IOLBF, 0));
  sigset_t awaited{};
  sigemptyset(&awaited);
  for (const int number : {SIGTERM, SIGINT, kReconnected, kGaveUp}) {
    sigaddset(&awaited, number);
  }
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);  // before other threads start: they inherit it
  static Hub hub;  // the library's threads may use it until the process has ended
  int received = kReconnected;
  while (received == kReconnected) {
    std::thread(Offer, std::ref(hub)).detach();  // may still wait when a signal comes
    sigwait(&awaited, &received);
    orvd_svc_deinit(static_cast<unsigned>(hub.service_id));
  }
  // Threads of the library may still run. quick_exit destroys nothing that they use.
  std::quick_exit(received == kGaveUp ? 1 : 0);
}
