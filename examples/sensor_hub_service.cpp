// A sensor hub as a service: copy this file and replace the functions.
//
// One opcode, two subsystems, four functions. SIGTERM and SIGINT end it. It can be tried on a desk
// against orvd-sim; see demo.sh.

#include <json/writer.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "IOrvdClient.h"

namespace {

constexpr uint32_t kOpcode = 0xa001;
constexpr const char* kOpcodeText = "0x0000a001";
constexpr const char* kToken = "sensor-hub-token";
// Told to the main thread.
constexpr int kReconnected = SIGHUP;
constexpr int kGaveUp = SIGUSR1;

// Marker, version 2, then what the Manager is to know of this API. The library reads "opcode" and
// "subsystems".
constexpr const char* kApiDefinition =
    "\x01ORVEX\x01\x02"
    R"({"Orvex":{"opcode":"0xa001","subsystems":[{"id":1,"name":"thermal"},{"id":2,"name":"motion"}],)"
    R"("functions":["read_temperature","set_limits","average","configure"]}})";

struct Hub {
  std::atomic<int> service_id{-1};
  std::atomic<int> open_sessions{0};
};

// The argument under `key`, or null when the call has none of this type there.
template <typename T>
const T* Find(const orvex_typed_map_t* queue, int key, orvex_data_type_t type) {
  if (queue == nullptr) {
    return nullptr;
  }
  const auto found = queue->find(key);
  if (found == queue->end() || found->second.first != type) {
    return nullptr;
  }
  return &static_cast<const ParamValues<T>&>(*found->second.second).value;
}

// The library leaves the member maps of structs to the service, whether it reads them or not.
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

// The functions write the body of the answer, or return false for arguments they cannot use. The
// library does not escape what it puts into messages.

std::string Quoted(const std::string& text) {
  return Json::valueToQuotedString(text.c_str());
}

bool ReadTemperature(const orvex_func_call_info_t& /*args*/, std::string& body) {
  body = R"("celsius":21.5,"sensor":"skin")";
  return true;
}

bool SetLimits(const orvex_func_call_info_t& args, std::string& body) {
  const auto* sensor = Find<uint8_t>(args.typed_queue, 1, ORVEX_UINT8);
  const auto* low = Find<int16_t>(args.typed_queue, 2, ORVEX_INT16);
  const auto* high = Find<int16_t>(args.typed_queue, 3, ORVEX_INT16);
  const auto* period_ms = Find<uint32_t>(args.typed_queue, 4, ORVEX_UINT32);
  const auto* label = Find<std::string>(args.typed_queue, 5, ORVEX_STRING);
  if (sensor == nullptr || low == nullptr || high == nullptr || period_ms == nullptr ||
      label == nullptr || *low > *high) {
    return false;
  }
  body = R"("sensor":)" + std::to_string(*sensor) + R"(,"range":)" + std::to_string(*high - *low) +
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

// A struct is found by its position in the list, here the first.
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

bool RunFunction(const orvex_func_call_info_t& args, std::string& body) {
  using Function = bool (*)(const orvex_func_call_info_t& args, std::string& body);
  static const auto& functions =
      *new std::map<std::string, Function>{{"read_temperature", ReadTemperature},
                                           {"set_limits", SetLimits},
                                           {"average", Average},
                                           {"configure", Configure}};
  const auto found = functions.find(args.func_name);
  return found != functions.end() && found->second(args, body);
}

// Any number of these run at once, each on its own thread.
int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  call->opcode = kOpcodeText;
  call->name = args.func_name;
  if (!RunFunction(args, call->result)) {
    call->result = "-1";
    call->ret = -1;
  }
  DeleteMemberMaps(args);
  return 0;
}

// On the library's receive thread: nothing here may wait for the Manager.
int OnEvent(int /*service_id*/, orvd_req_t* req, void* user_data) {
  auto* hub = static_cast<Hub*>(user_data);
  switch (req->type) {
    case ORVD_SESSION_START:
      ++hub->open_sessions;
      break;
    case ORVD_SESSION_END:
      --hub->open_sessions;
      break;
    case ORVD_RECONNECTED:
      kill(getpid(), kReconnected);  // the main thread starts anew
      break;
    default:
      printf("hub: event %d, state '%s'\n", req->type, req->state.c_str());
  }
  printf("hub: %d open sessions\n", hub->open_sessions.load());
  return 0;
}

void Offer(Hub& hub) {
  hub.service_id = orvd_svc_init();
  const auto id = static_cast<uint32_t>(hub.service_id);
  if (hub.service_id < 0 || _orvd_svc_register_auth(id, kOpcode, kApiDefinition, kToken) != 0 ||
      _orvd_svc_ready(id, kOpcode, OnEvent, &hub, RunTask) != 0) {
    printf("hub: the Manager is away or refuses\n");
    kill(getpid(), kGaveUp);
  }
}

}  // namespace

int main() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  sigset_t awaited{};
  sigemptyset(&awaited);
  for (const int number : {SIGTERM, SIGINT, kReconnected, kGaveUp}) {
    sigaddset(&awaited, number);
  }
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);  // before there are threads, which inherit it

  static Hub hub;  // the library's threads may use it until the process is gone
  int received = kReconnected;
  while (received == kReconnected) {
    // These calls wait for the Manager without limit, so they get a thread that can be left behind.
    std::thread(Offer, std::ref(hub)).detach();
    sigwait(&awaited, &received);
    orvd_svc_deinit(static_cast<unsigned>(hub.service_id));
  }
  // The library's threads may still be on their way out: destroy nothing under them.
  std::quick_exit(received == kGaveUp ? 1 : 0);
}
