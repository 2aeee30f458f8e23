// The service of docs/PROTOCOL.md. Each SIGHUP starts its next call; it raises the first one
// itself. It prints the calls, their results and the events of the callback.

#include <json/writer.h>

#include <csignal>
#include <iostream>

#include "base/never_destroyed.h"
#include "support/service_fixture.h"
#include "support/taken_args.h"

#define CALL(...)            \
  AwaitSignal(#__VA_ARGS__); \
  std::cout << testing::PrintToString(__VA_ARGS__) << "\n"

namespace {

sigset_t signals{};

void AwaitSignal(const char* call) {
  int signal = 0;
  sigwait(&signals, &signal);
  std::cout << call << "\n";
}

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  const std::string queued = TakeArgs(args);
  const std::map<std::string, std::string> results{
      {"echo", R"("queued":)" + Json::valueToQuotedString(queued.c_str())},
      {"fail", "-1"},
      {"ping", "pong"}};
  call->opcode = "0x00000010";
  call->name = args.func_name;
  call->ret = args.func_name == "fail" ? -1 : 0;
  call->result = results.at(args.func_name);
  return 0;
}

}  // namespace

int main() {
  sigaddset(&signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // threads inherit it, so it is set before them
  static_cast<void>(raise(SIGHUP));
  android::base::SetProperty("ro.build.type", "eng");
  android::base::SetProperty("vendor.orvex.one.service", "vendor.radioWarden");
  android::base::SetProperty("vendor.orvex.one.markers", "true");
  const char* api_def =
      "\x01ORVEX\x01\x02"
      R"({"Orvex":{"opcode":"0x10","subsystems":[{"id":1},{"id":2}]}})";
  const auto callback = Recorder::Callback;
  const auto task = RunTask;
  Recorder* user_data = &orvd_client::NeverDestroyed<Recorder>();
  CALL(orvd_svc_init());
  CALL(_orvd_svc_register_auth(7, 16, api_def, "s3cr3t"));
  CALL(_orvd_svc_ready(7, 16, callback, user_data, task));
  CALL(orvd_permission_query(9, {"location", "camera"}));
  CALL(orvd_info_query(9, {"client", "zone"}));
  CALL(orvd_info_monitor(9, {"zone"}));
  AwaitSignal(R"(orvd_log_marker("boot done"))");
  orvd_log_marker("boot done");
  CALL(orvd_svc_deinit(7));
  std::cout << Events() << std::flush;
}
