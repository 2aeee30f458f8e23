#include "support/service_fixture.h"

#include <android-base/stringprintf.h>

#include <atomic>
#include <filesystem>
#include <sstream>
#include <thread>

namespace {

using android::base::StringPrintf;

constexpr const char* kEventNames[] = {"terminated", "reconnected",       "start",
                                       "end",        "permission_change", "state_change",
                                       "ready",      "setting_change"};

std::string Render(const orvd_req_t& req) {
  std::ostringstream line;
  line << kEventNames[req.type];
  const auto add = [&line](const char* name, const auto& value, const auto& absent) {
    if (value != absent) {
      line << name << value;
    }
  };
  add(" ", StringPrintf("0x%08x::%u", req.opcode, req.ssid), "0x00000000::0");
  add(" session ", req.session_id, 0U);
  add(" permission ", req.permission, "");
  add(" status ", req.status, 0);
  add(" state ", req.state, "");
  add(" package ", req.package, "");
  return line.str();
}

}  // namespace

void SetDebugLevel(int level) {
  android::base::SetProperty("persist.vendor.orvex.clientlib.debug_level", std::to_string(level));
}

bool Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + orvd::kPatience;
  bool holds = condition();
  for (; !holds && std::chrono::steady_clock::now() < deadline; holds = condition()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return holds;
}

const char* WithoutSocket(const char* path) {
  std::filesystem::remove(path);
  return path;
}

long CountEntries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

long Threads() {
  return CountEntries("/proc/self/task");
}

bool WaitForThreads(long count) {
  return Eventually([count] { return Threads() == count; });
}

int Recorder::Callback(int service_id, orvd_req_t* req, void* user_data) {
  EXPECT_EQ(service_id, kServiceId);
  auto& recorder = *static_cast<Recorder*>(user_data);
  std::unique_lock<std::mutex> lock(recorder.mutex_);
  const auto hook = recorder.hook_;
  const auto [prefix, result] = recorder.result_;
  lock.unlock();
  const std::string line = Render(*req);
  AddToLog("> " + line);
  hook(*req);
  return line.rfind(prefix, 0) == 0 ? result : 0;
}

std::string Events() {
  std::string events;
  for (const LogLine& line : Log()) {
    events += line.text.rfind("> ", 0) == 0 ? line.text.substr(2) + "\n" : "";
  }
  return events;
}

void Recorder::Return(const std::string& event_prefix, int result) {
  const std::lock_guard<std::mutex> lock(mutex_);
  result_ = {event_prefix, result};
}

void Recorder::SetHook(std::function<void(const orvd_req_t&)> hook) {
  const std::lock_guard<std::mutex> lock(mutex_);
  hook_ = std::move(hook);
}

void ServiceTest::Settle() {
  static std::atomic<int> settled{0};
  const std::string fence = "fence " + std::to_string(++settled);
  ASSERT_TRUE(peer.Send(R"({"req_type":")" + fence + R"("})"));
  ASSERT_TRUE(WaitLogged("Unknown request type '" + fence + "'"));
}

void ServiceTest::Init() {
  ASSERT_EQ(orvd_svc_init(), kServiceId);
  peer.SkipAll();
}

int ServiceTest::Register(uint32_t opcode, std::initializer_list<uint32_t> ssids) {
  return _orvd_svc_register_auth(kServiceId, opcode, orvd::Definition(opcode, ssids).c_str(),
                                 "token");
}

int ServiceTest::Ready(uint32_t opcode, orvd_task_function_t task) {
  return _orvd_svc_ready(kServiceId, opcode, Recorder::Callback,
                         &orvd_client::NeverDestroyed<Recorder>(), task);
}

void ServiceTest::Offer(uint32_t opcode, std::initializer_list<uint32_t> ssids,
                        orvd_task_function_t task) {
  ASSERT_EQ(Register(opcode, ssids), 0);
  ASSERT_EQ(Ready(opcode, task), 0);
  peer.SkipAll();
}

void ServiceTest::OpenSession(uint32_t session_id, uint32_t opcode, uint32_t ssid) {
  peer.Send(orvd::SessionMessage("start_session", session_id, opcode, {ssid}));
  ASSERT_THAT(peer.NextOf("start_session").value_or("lost"), testing::HasSubstr("Success"));
  peer.Send(orvd::SessionMessage("ready_session", session_id, opcode, {ssid}));
  Settle();
}
