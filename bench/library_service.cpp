// The measured service that uses the library. The service itself does as little as possible.

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "IOrvdClient.h"
#include "link/send.h"
#include "wire.h"

namespace {

using bench::Command;

template <typename T>
const T& ValueOf(const ValuesInterface& holder) {
  return static_cast<const ParamValues<T>&>(holder).value;
}

// The service owns the member maps of a struct and must delete them.
int DeleteStruct(const orvex_func_call_info_t& args) {
  const auto& [key, entry] = *args.typed_queue->begin();
  const orvex_typed_map_t* typed = ValueOf<orvex_typed_map_t*>(*entry.second);
  const auto members = static_cast<int>(typed->size());
  delete typed;
  delete ValueOf<orvex_value_map_t*>(*args.value_queue->at(key));
  return members;
}

// The number of decoded values. The driver compares it with the number that it sent.
int CountDecoded(const orvex_func_call_info_t& args) {
  if (args.typed_queue == nullptr || args.typed_queue->size() > 1) {
    return args.typed_queue == nullptr ? 0 : static_cast<int>(args.typed_queue->size());
  }
  const auto& [type, holder] = args.typed_queue->begin()->second;
  switch (static_cast<int>(type)) {
    case ORVEX_STRUCT:
      return DeleteStruct(args);
    case ORVEX_VECTOR_OF(ORVEX_UINT32):
      return static_cast<int>(ValueOf<std::vector<uint32_t>>(*holder).size());
    case ORVEX_VECTOR_OF(ORVEX_INT32):
      return static_cast<int>(ValueOf<std::vector<int32_t>>(*holder).size());
    default:
      return static_cast<int>(ValueOf<std::string>(*holder).size());
  }
}

int OnEvent(int service_id, orvd_req_t* req, void* user_data);
int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args);

bool Ask(uint32_t session_id, const Command& command) {
  const std::vector<std::string> permissions = bench::Permissions(command.first);
  bool answered = true;
  for (uint32_t i = 0; i < command.count; ++i) {
    answered = orvd_permission_query(session_id, permissions).size() == command.first && answered;
  }
  return answered;
}

bool OfferOne(uint32_t opcode, uint32_t subsystems, orvd_state_callback_t on_event) {
  return _orvd_svc_register_auth(bench::kServiceId, opcode,
                                 bench::Definition(opcode, subsystems).c_str(),
                                 bench::kToken) == 0 &&
         _orvd_svc_ready(bench::kServiceId, opcode, on_event, nullptr, RunTask) == 0;
}

bool Offer(const Command& command) {
  bool offered = true;
  for (uint32_t i = 0; i < command.count; ++i) {
    offered = OfferOne(command.first + i, 1, nullptr) && offered;
  }
  return offered;
}

int Execute(uint32_t session_id, const Command& command) {
  return (command.what == "ask" ? Ask(session_id, command) : Offer(command)) ? 0 : -1;
}

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  const Command command = bench::ParseCommand(args.func_name);
  call->opcode = "0x0000a001";
  call->name = args.func_name;
  call->result = R"("done":true)";
  call->ret = command.what.empty() ? CountDecoded(args) : Execute(call->session_id, command);
  return 0;
}

int OnEvent(int /*service_id*/, orvd_req_t* req, void* /*user_data*/) {
  if (req->type == ORVD_STATE_CHANGE) {
    orvd_send_to_manager_raw("ACK");
  } else if (req->type == ORVD_TERMINATED) {
    std::quick_exit(0);
  }
  return 0;
}

}  // namespace

int main() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (orvd_svc_init() != bench::kServiceId ||
      !OfferOne(bench::kOpcode, bench::kSubsystems, OnEvent)) {
    return 1;
  }
  for (;;) {
    pause();
  }
}
