// The measured service on the raw interface that the C++ layer is compared with. It does the same
// as layer_service.cpp: it finds each argument by its key, checks its type, and answers with the
// sum of the values. Functions and arguments that the driver does not send end the process.

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "IOrvdClient.h"
#include "wire.h"

namespace {

const ValuesInterface& Find(const orvex_typed_map_t& queue, int key, orvex_data_type_t type) {
  const auto found = queue.find(key);
  if (found == queue.end() || found->second.first != type) {
    std::quick_exit(1);
  }
  return *found->second.second;
}

template <typename T>
const T& ValueOf(const ValuesInterface& holder) {
  return static_cast<const ParamValues<T>&>(holder).value;
}

template <typename T>
const T& Read(const orvex_typed_map_t& queue, int key, orvex_data_type_t type) {
  return ValueOf<T>(Find(queue, key, type));
}

int64_t SumScalars(const orvex_typed_map_t& queue) {
  return bench::Sum(Read<uint8_t>(queue, 0, ORVEX_UINT8), Read<uint16_t>(queue, 1, ORVEX_UINT16),
                    Read<uint32_t>(queue, 2, ORVEX_UINT32), Read<uint64_t>(queue, 3, ORVEX_UINT64),
                    Read<int8_t>(queue, 4, ORVEX_INT8), Read<int16_t>(queue, 5, ORVEX_INT16),
                    Read<int32_t>(queue, 6, ORVEX_INT32), Read<double>(queue, 7, ORVEX_DOUBLE),
                    Read<std::string>(queue, 8, ORVEX_STRING).size(),
                    Read<bool>(queue, 9, ORVEX_BOOLEAN));
}

// The service owns the member maps of a struct and must delete them.
int64_t SumMembers(const orvex_func_call_info_t& args) {
  const auto* members = Read<orvex_typed_map_t*>(*args.typed_queue, 0, ORVEX_STRUCT);
  int64_t sum = 0;
  for (int key = 0; key < bench::kMembers; ++key) {
    sum += Read<int32_t>(*members, key, ORVEX_INT32);
  }
  delete members;
  delete ValueOf<orvex_value_map_t*>(*args.value_queue->at(0));
  return sum;
}

int64_t Sum(const orvex_func_call_info_t& args) {
  if (args.typed_queue != nullptr && args.func_name == "scalars") {
    return SumScalars(*args.typed_queue);
  }
  if (args.typed_queue != nullptr && args.func_name == "struct") {
    return SumMembers(args);
  }
  std::quick_exit(1);
}

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  call->opcode = "0x0000a001";
  call->name = args.func_name;
  call->result = R"("sum":)" + std::to_string(Sum(args)) + R"(,"done":true)";
  return 0;
}

int Agree(int /*service_id*/, orvd_req_t* /*req*/, void* /*user_data*/) {
  return 0;
}

}  // namespace

int main() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::string definition = bench::Definition(bench::kOpcode, bench::kSubsystems);
  if (orvd_svc_init() != bench::kServiceId ||
      _orvd_svc_register_auth(bench::kServiceId, bench::kOpcode, definition.c_str(),
                              bench::kToken) != 0 ||
      _orvd_svc_ready(bench::kServiceId, bench::kOpcode, Agree, nullptr, RunTask) != 0) {
    return 1;
  }
  for (;;) {
    pause();
  }
}
