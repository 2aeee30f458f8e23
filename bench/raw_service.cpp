// The measured service on the raw interface. Where it is compared with the baseline, it answers
// with the number of the decoded values. Where it is compared with layer_service.cpp, it finds each
// argument by its key, checks its type, and answers with the sum of the values.

#include <unistd.h>

#include <cstdlib>

#include "IOrvdClient.h"
#include "common.h"
#include "link/send.h"

namespace {

template <typename T>
const T& ValueOf(const ValuesInterface& holder) {
  return static_cast<const ParamValues<T>&>(holder).value;
}

template <typename T>
const T& Read(const orvex_typed_map_t& queue, int key, orvex_data_type_t type) {
  const auto found = queue.find(key);
  if (found == queue.end() || found->second.first != type) {
    std::quick_exit(1);
  }
  return ValueOf<T>(*found->second.second);
}

int64_t SumScalars(const orvex_typed_map_t& queue) {
  return bench::Sum(Read<uint8_t>(queue, 1, ORVEX_UINT8), Read<uint16_t>(queue, 2, ORVEX_UINT16),
                    Read<uint32_t>(queue, 3, ORVEX_UINT32), Read<uint64_t>(queue, 4, ORVEX_UINT64),
                    Read<int8_t>(queue, 5, ORVEX_INT8), Read<int16_t>(queue, 6, ORVEX_INT16),
                    Read<int32_t>(queue, 7, ORVEX_INT32), Read<double>(queue, 8, ORVEX_DOUBLE),
                    Read<std::string>(queue, 9, ORVEX_STRING).size(),
                    Read<bool>(queue, 10, ORVEX_BOOLEAN));
}

// The service owns the member maps of a struct and must delete them.
int64_t ReadMembers(const orvex_func_call_info_t& args, bool sums) {
  const auto* members = Read<orvex_typed_map_t*>(*args.typed_queue, 0, ORVEX_STRUCT);
  int64_t sum = sums ? 0 : bench::Sum(members->size());
  for (int key = 1; sums && key <= bench::kMembers; ++key) {
    sum += Read<int32_t>(*members, key, ORVEX_INT32);
  }
  delete members;
  delete ValueOf<orvex_value_map_t*>(*args.value_queue->at(0));
  return sum;
}

int64_t CountValues(const orvex_func_call_info_t& args) {
  const orvex_typed_map_t* queue = args.typed_queue;
  if (queue == nullptr || queue->size() > 1) {
    return queue == nullptr ? 0 : bench::Sum(queue->size());
  }
  const auto& [type, holder] = queue->begin()->second;
  switch (static_cast<int>(type)) {
    case ORVEX_STRUCT:
      return ReadMembers(args, false);
    case ORVEX_VECTOR_OF(ORVEX_UINT32):
      return bench::Sum(ValueOf<std::vector<uint32_t>>(*holder).size());
    case ORVEX_VECTOR_OF(ORVEX_INT32):
      return bench::Sum(ValueOf<std::vector<int32_t>>(*holder).size());
    default:
      return bench::Sum(ValueOf<std::string>(*holder).size());
  }
}

int64_t ReadArguments(const orvex_func_call_info_t& args) {
  return args.func_name == "sum_scalars"  ? SumScalars(*args.typed_queue)
         : args.func_name == "sum_struct" ? ReadMembers(args, true)
                                          : CountValues(args);
}

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  const auto ask = [call](const std::vector<std::string>& permissions) {
    return orvd_permission_query(call->session_id, permissions).size();
  };
  const int64_t read = bench::IsCommand(args.func_name) ? bench::RunCommand(args.func_name, ask)
                                                        : ReadArguments(args);
  call->opcode = "0x0000a001";
  call->name = args.func_name;
  call->result = R"("read":)" + std::to_string(read) + R"(,"done":true)";
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
  const auto id = static_cast<uint32_t>(orvd_svc_init());
  if (_orvd_svc_register_auth(id, bench::kOpcode, bench::Definition().c_str(), bench::kToken) !=
          0 ||
      _orvd_svc_ready(id, bench::kOpcode, OnEvent, nullptr, RunTask) != 0) {
    return 1;
  }
  for (;;) {
    pause();
  }
}
