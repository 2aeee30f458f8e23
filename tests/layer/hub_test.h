// The fixture of the layer's tests: a service that runs on a thread of its own, and its Manager.

#pragma once

#include <orvex/service.h>

#include <atomic>
#include <climits>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <regex>
#include <sstream>
#include <string>

#include "link/send.h"
#include "orvex_simulator/json_text.h"
#include "support/args_of.h"
#include "support/frozen_clock.h"
#include "support/service_fixture.h"

inline constexpr uint32_t kOpcode = 0xa001;

// A session's state, counted.
inline std::atomic<int> living{0};
struct State {
  explicit State(int its_value) : value(its_value) { ++living; }
  ~State() { --living; }
  std::atomic<int> value;
};

// Matches a function that throws a std::logic_error with this text in it.
inline auto IsRefused(const char* why) {
  return testing::ThrowsMessage<std::logic_error>(testing::HasSubstr(why));
}

class HubTest : public ServiceTest {
 public:
  HubTest() {
    SetDebugLevel(1);
    AnswerQueries("PERMISSION", R"("PermRes":["1"])");
  }

 protected:
  // Nothing that the service or its tasks use is destroyed before their threads have ended.
  void TearDown() override {
    let_go = INT_MAX;
    EXPECT_EQ(result.valid() ? Stop() : 0, 0);
    EXPECT_TRUE(WaitForThreads(idle_threads));
    SetLogHook(nullptr);
    for (const char* kind : {"PERMISSION", "INFO_QUERY"}) {
      peer.SetRule(kind, nullptr);
    }
    peer.HangUp();  // waits for the rule that runs: the Manager outlives this fixture
  }

  // A service with two opcodes, whose handlers all tell what they hear.
  void Make() {
    service = std::make_unique<orvex::Service>(options);
    for (const uint32_t opcode : {kOpcode + 1, kOpcode}) {
      api = &service->Offer(opcode, {1, 2, 3, 4}, "to\"ken");
      api->On("hold", [this](orvex::Call& call) { return Hold(call); });
      api->On("count", [](orvex::Call& call) {
        return orvex::Object{{"n", ++call.State<State>()->value}};
      });
      api->On("needs", [](orvex::Call& call, const std::string& permission,
                          const std::optional<std::string>& second) {
        return orvex::Object{
            {"granted", second ? call.Granted({permission, *second}) : call.Granted(permission)}};
      });
      api->OnSessionReady([this](orvex::Session& session) { HearPair("ready", session); });
      api->OnSessionStart([this](orvex::Session& session) {
        session.Emplace<State>(static_cast<int>(session.subsystem()));
        HearPair("start", session);
        return session.subsystem() == 4 ? throw std::runtime_error("no fourth")
                                        : session.subsystem() != 3;
      });
      api->OnSessionEnd([this](orvex::Session& session) {
        HearPair("end", session);
        freezes_clock ? FreezeClock() : void();
        session.subsystem() == 2 ? throw std::runtime_error("at the end") : void();
      });
    }
    const auto hear = [this](const char* kind) {
      return [this, kind](const orvex::StateChange& change) {
        Hear(kind, change.session, change.state, change.value, change.package);
      };
    };
    service->OnStateChange(hear("state")).OnSystemSettingChange(hear("setting"));
    service->OnPermissionChange([this](const orvex::PermissionChange& change) {
      Hear("permission", change.session, change.permission, change.granted, change.package);
      throw std::runtime_error("heard");
    });
    service->OnLost([this] { Hear("lost"); }).OnBack([this] { Hear("back"); });
  }
  // Runs the service on a thread of its own.
  void RunAside() {
    service ? void() : Make();
    result = std::async(std::launch::async, [this] { return service->Run(); });
  }
  void ExpectService(uint32_t session) {
    ASSERT_TRUE(WaitLogged("hub: serves with service id 7, opcodes: 2"));
    OpenSession(session, kOpcode, 1);
    EXPECT_EQ(Call("count", "", session), R"({"n":2})");
  }
  void Start(uint32_t session = 9) {
    RunAside();
    ExpectService(session);
    Heard();
  }
  int Stop() {
    service->Stop();
    return result.get();
  }

  // What the handlers have heard since the last call.
  std::string Heard() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(heard_, "");
  }
  bool WaitHeard(const std::string& events) {
    std::string heard;
    return Eventually([&] { return (heard += Heard()) == events; });
  }

  // `args` is what ArgsOf takes.
  void SendTask(const std::string& function, const std::string& args = "", int transaction = 1,
                uint32_t session = 9) {
    peer.Send(orvd::TaskMessage(session, kOpcode, 1, transaction, function, ArgsOf(args)));
  }
  std::string NextAnswer() { return peer.NextOf("exec_task").value_or("no answer"); }
  // The object that the function answers. For a failure: its code, and the reason in the log.
  std::string Call(const std::string& function, const std::string& args = "",
                   uint32_t session = 9) {
    ClearLog();
    SendTask(function, args, 1, session);
    const Json::Value answer = orvd::ParseObject(NextAnswer());
    std::string failure;
    for (const LogLine& line : Log()) {
      const std::regex parts(
          "hub: function '.*' of opcode 0x0000a001 in session .* failed(: .*); answers with return (.*)");
      const bool is_failure = line.text.rfind("hub: function", 0) == 0;
      failure += is_failure ? std::regex_replace(line.text, parts, "$2$1") : "";
    }
    const bool is_ok = failure.empty() && answer["return"] == 0 && answer["status"] == 0;
    const bool has_failed = failure.rfind(answer["return"].asString() + ": ", 0) == 0 &&
                            answer["func"].empty() && answer["status"] == -1;
    EXPECT_TRUE(is_ok || has_failed) << answer << failure;
    return is_ok ? orvd::WriteCompact(answer["func"]) : failure;
  }
  void SendHeldTask(uint32_t session = 9) {
    let_go = 0;
    SendTask("hold", "", 1, session);
    ASSERT_TRUE(Eventually([this] { return held != nullptr; }));
  }
  // Waits until so many tasks are blocked: a new one then waits for its turn, or for an answer.
  bool WaitBlockedTasks(long count) const {
    return Eventually([this, count] {
      long blocked = 0;
      for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string id, name, state;
        std::ifstream(thread.path() / "stat") >> id >> name >> state;
        blocked += state == "S" ? 1 : 0;
      }
      // The service has two threads. This one is not blocked.
      return blocked == idle_threads + 2 - 1 + count && Threads() == blocked + 1;
    });
  }
  // One task at a time, and three at most that run or wait for their turn.
  void StartSerial(int drain) {
    options.drain = std::chrono::seconds(drain);
    options.max_tasks = 3;
    Make();
    api->Serial();
    Start();
  }
  void Queue(int transaction, int running) {  // threads may start in any order
    SendTask("hold", "", transaction);
    ASSERT_TRUE(WaitBlockedTasks(running));
  }
  // Sends a message on a session of the service's lower opcode, and waits until it is handled.
  void SendSession(const char* kind, uint32_t session, const std::vector<uint32_t>& subsystems) {
    peer.Send(orvd::SessionMessage(kind, session, kOpcode, subsystems));
    Settle();
  }

  void HangUpWithReset() {
    peer.StopReading();
    ASSERT_TRUE(orvd_send_to_manager_raw("unread") == 0 && peer.HangUpWithReset());
  }

  // What a task answers that needs a permission, and how often the Manager was asked.
  std::string Ask(const std::string& permission, uint32_t session = 9) {
    queries = 0;
    const std::string answer = Call("needs", "str:" + permission, session);
    return answer + " asked " + std::to_string(queries);
  }
  // The Manager answers this kind of query with this member.
  void AnswerQueries(const char* kind, const std::string& results) {
    peer.SetRule(kind, [=](const std::string& query) {
      ++queries;
      last_query = query;
      const std::string id = orvd::ParseObject(query)["QueryId"].asString();
      return R"({"req_type":")" + std::string(kind) + R"(","QueryId":)" + id + "," + results + "}";
    });
  }

  orvex::Options options{"hub"};
  std::unique_ptr<orvex::Service> service;
  orvex::Api* api = nullptr;  // of the lower opcode
  std::future<int> result;
  const long idle_threads = Threads();
  std::atomic<orvex::Call*> held{nullptr};  // the task that holds
  std::atomic<int> let_go{0};               // the last transaction that need not hold
  std::atomic<int> queries{0};              // that the Manager has answered
  std::atomic<bool> freezes_clock{false};
  std::string last_query;

 private:
  template <typename... Parts>
  void Hear(const char* kind, const Parts&... parts) {
    std::ostringstream event;
    event << kind;
    ((event << "/" << parts), ...);
    if (held != nullptr) {  // on a thread that must not wait
      EXPECT_THAT([this] { held.load()->Granted("p"); }, IsRefused("Call::Granted waits"));
      EXPECT_THAT([this] { held.load()->Info("i"); }, IsRefused("Call::Info waits"));
      EXPECT_THAT([] { orvex::Service().Run(); }, IsRefused("Service::Run waits"));
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    heard_ += event.str() + " ";
  }
  void HearPair(const char* kind, const orvex::Session& session) {
    Hear(kind, session.id(), session.opcode() - kOpcode, session.subsystem());
  }
  orvex::Object Hold(orvex::Call& call) {
    EXPECT_EQ(call.State<int>(), nullptr);
    Hear("hold", call.transaction());
    held = &call;
    Eventually([&] { return let_go >= call.transaction(); });
    held = nullptr;
    Hear("go", call.transaction());
    call.Granted(std::vector<std::string>());  // looks the session up
    return {{"n", call.State<State>()->value.load()}};
  }

  std::mutex mutex_;
  std::string heard_;
};
