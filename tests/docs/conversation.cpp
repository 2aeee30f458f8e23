#include "docs/conversation.h"

#include <json/writer.h>

#include <map>
#include <regex>
#include <thread>

#include "link/never_destroyed.h"
#include "support/taken_args.h"

namespace {

using std::string;
using testing::PrintToString;

constexpr const char* kDefinition =
    "\x01ORVEX\x01\x02"
    R"({"Orvex":{"opcode":"0x10","subsystems":[{"id":1},{"id":2}]}})";

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  call->opcode = "0x00000010";
  call->name = args.func_name;
  const string queued = TakeArgs(args.typed_queue, args.value_queue);
  call->result = R"("queued":)" + Json::valueToQuotedString(queued.c_str());
  if (args.func_name == "ping") {
    call->result = "pong";
  } else if (args.func_name == "fail") {
    call->result = "-1";
    call->ret = -1;
  }
  return 0;
}

// The calls that the document names.
const std::map<string, std::function<string()>> kCalls = {
    {"orvd_svc_init()", [] { return std::to_string(orvd_svc_init()); }},
    {R"(_orvd_svc_register_auth(7, 16, api_def, "s3cr3t"))",
     [] { return std::to_string(_orvd_svc_register_auth(7, 16, kDefinition, "s3cr3t")); }},
    {"_orvd_svc_ready(7, 16, callback, user_data, task)",
     [] {
       return std::to_string(
           _orvd_svc_ready(7, 16, Recorder::Callback, &ProcessWide<Recorder>(), RunTask));
     }},
    {R"(orvd_permission_query(9, {"location", "camera"}))",
     [] {
       return PrintToString(orvd_permission_query(9, {"location", "camera"}));
     }},
    {R"(orvd_info_query(9, {"client", "zone"}))",
     [] {
       return PrintToString(orvd_info_query(9, {"client", "zone"}));
     }},
    {R"(orvd_info_monitor(9, {"zone"}))",
     [] { return PrintToString(orvd_info_monitor(9, {"zone"})); }},
    {R"(orvd_log_marker("boot done"))", [] { return orvd_log_marker("boot done"), "void"; }},
    {"orvd_svc_deinit(7)", [] { return std::to_string(orvd_svc_deinit(7)); }},
};

bool HasLogged(const char* text) {
  return LogText().find(text) != string::npos;
}

}  // namespace

Conversation::Conversation() : recorder_(ProcessWide<Recorder>()) {
  SetTestProperty("ro.build.type", "eng");
  SetTestProperty("vendor.orvex.one.service", "vendor.radioWarden");
  SetTestProperty("vendor.orvex.one.markers", "true");
}

void Conversation::Play(const Example& example) {
  SCOPED_TRACE("docs/PROTOCOL.md:" + std::to_string(example.line));
  recorder_.Clear();
  if (!example.call.empty()) {
    Call(example.call);
  }
  if (!example.from_manager) {
    EXPECT_EQ(peer_.Next(), example.text);
  } else if (peer_.Send(example.text) && !call_.valid()) {
    Settle(peer_);
  }
  if (!example.returns.empty()) {
    EXPECT_EQ(Result(orvd::kPatience), example.returns);
  }
  EXPECT_EQ(recorder_.events(), example.hears);
}

bool Conversation::IsOver() {
  return peer_.WaitEndOfFile() && !peer_.Next(orvd::Milliseconds(0));
}

// The fence tells that the message has been handled, but for a task, and unless the answer to INIT
// ends the receive thread. Lines that fall anywhere are left out.
string Conversation::Try(const string& message, orvd::Milliseconds limit) {
  ClearLog();
  recorder_.Clear();
  peer_.Send(message);
  peer_.Send(R"({"req_type":"fence"})");
  Eventually([&] { return CountLogged("Unknown request type 'fence'") > 0 || IsReady({}); });
  if (orvd::KindOf(message) == "exec_task") {
    Eventually([] { return HasLogged("client Sending") || HasLogged("Failed to handle"); });
  }
  const string result = Result(limit);
  const std::regex anywhere("([Ww]aiting for|Client received|.*'fence').*\n");
  return result + "\n" + recorder_.events() + std::regex_replace(LogText(), anywhere, "");
}

void Conversation::Call(const string& call) {
  ASSERT_EQ(kCalls.count(call), 1U) << call;
  std::packaged_task<string()> task(kCalls.at(call));
  call_ = task.get_future();
  std::thread(std::move(task)).detach();
}

bool Conversation::IsReady(orvd::Milliseconds limit) const {
  return call_.valid() && call_.wait_for(limit) == std::future_status::ready;
}

string Conversation::Result(orvd::Milliseconds limit) {
  if (!call_.valid()) {
    return "";
  }
  return IsReady(limit) ? call_.get() : "waits";
}
