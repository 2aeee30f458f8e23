// An example service on the raw interface of the library, with one function. A service that uses
// <orvex/service.h> needs nothing of this. SIGTERM and SIGINT end the process. The service does not
// notice when the connection is reset, nor when the Manager stays away for 20 seconds.

#include <json/writer.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "IOrvdClient.h"

namespace {

constexpr uint32_t kOpcode = 0xa002;
constexpr int kReconnected = SIGHUP;  // this signal and the next one are sent to the main thread
constexpr int kGaveUp = SIGUSR1;
constexpr unsigned kOfferLimit = 30;  // seconds

// Marker, version 2, and the description of this API for the Manager.
constexpr const char* kApiDefinition =
    "\x01ORVEX\x01\x02"
    R"({"Orvex":{"opcode":"0xa002","subsystems":[{"id":1}]}})";

std::atomic<int> service_id{-1};

// The library does not escape texts. Returns `text` escaped, without quotation marks around it.
std::string Escaped(const std::string& text) {
  const std::string quoted = Json::valueToQuotedString(text.c_str());
  return quoted.substr(1, quoted.size() - 2);
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

// Returns the text argument with the id 1. Returns null if there is none.
const std::string* FindLabel(const orvex_func_call_info_t& args) {
  const auto* queue = args.typed_queue;
  if (queue == nullptr || queue->count(1) == 0 || queue->at(1).first != ORVEX_STRING) {
    return nullptr;
  }
  return &static_cast<const ParamValues<std::string>&>(*queue->at(1).second).value;
}

// Runs one task. Any number of tasks run at the same time, each on its own thread. An exception
// that leaves this function ends the process.
int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  call->opcode = "0x0000a002";
  call->name = Escaped(args.func_name);  // this text comes from the client, so it is not trusted
  const std::string* label = args.func_name == "set_label" ? FindLabel(args) : nullptr;
  if (label != nullptr) {
    call->result = R"("label":")" + Escaped(*label) + '"';
  } else {
    call->result = "-1";
    call->ret = -1;
  }
  DeleteMemberMaps(args);
  return 0;
}

// Called on the library's receive thread, so it must not wait for the Manager.
int OnEvent(int /*service_id*/, orvd_req_t* req, void* /*user_data*/) {
  if (req->type == ORVD_RECONNECTED) {
    kill(getpid(), kReconnected);  // the main thread initialises again
  }
  return 0;
}

// These calls wait for the Manager without limit. The alarm ends the process if the Manager dies
// meanwhile.
void Offer() {
  alarm(kOfferLimit);  // ends the process; init then starts it again
  service_id = orvd_svc_init();
  const auto id = static_cast<uint32_t>(service_id);
  if (service_id < 0 || _orvd_svc_register_auth(id, kOpcode, kApiDefinition, "raw-token") != 0 ||
      _orvd_svc_ready(id, kOpcode, OnEvent, nullptr, RunTask) != 0) {
    kill(getpid(), kGaveUp);  // the Manager is away or refuses
  }
  alarm(0);
}

}  // namespace

int main() {
  sigset_t awaited{};
  sigemptyset(&awaited);
  for (const int number : {SIGTERM, SIGINT, kReconnected, kGaveUp}) {
    sigaddset(&awaited, number);
  }
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);  // before other threads start: they inherit it
  int received = kReconnected;
  while (received == kReconnected) {
    std::thread(Offer).detach();  // may still wait when a signal comes
    sigwait(&awaited, &received);
    orvd_svc_deinit(static_cast<unsigned>(service_id));
  }
  // Threads of the library may still run. quick_exit destroys nothing that they use.
  std::quick_exit(received == kGaveUp ? 1 : 0);
}
