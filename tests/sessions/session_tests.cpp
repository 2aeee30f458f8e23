// Sessions and their tasks: what passes between Manager, library and service, as one text.

#include <android/log.h>
#include <json/json.h>
#include <pthread.h>

#include <future>
#include <regex>
#include <set>

#include "link/connection.h"
#include "sessions/exec_task.h"
#include "sessions/session_end.h"
#include "sessions/session_start.h"
#include "sessions/session_state.h"
#include "sessions/terminate_sessions.h"
#include "support/service_fixture.h"

extern "C" const char* __lsan_default_suppressions() {
  return "leak:NewCallRecord\n";  // a refused task leaves its call record, and nothing else
}

namespace {

std::string Replace(const std::string& text, const char* pattern, const char* by) {
  return std::regex_replace(text, std::regex(pattern), by);
}

struct SessionTest : ServiceTest {
  // Offers 0xa001 and 0xb002. Events are noted among the log's lines.
  void Begin(int level, orvd_task_function_t task = nullptr) {
    SetDebugLevel(level);
    Init();
    Offer(0xa001, {1, 2, 3}, task);
    Offer(0xb002, {3, 4});
    recorder.SetHook([this](const orvd_req_t&) {
      const std::string event = recorder.events();
      recorder.Clear();
      __android_log_print(ANDROID_LOG_ERROR, nullptr, "> %s", event.c_str());
    });
    orvd_send_to_manager_raw("begun");
    peer.NextOf("begun");
    ClearLog();
  }

  static std::string Message(const std::string& text) {
    std::string json = Replace(text, "([:,])([^ ,]+)", R"($1{"id":$2})");
    json = Replace(json, R"( (\S+?):(\S+))", R"(,{"id":$1,"subsystems":[$2]})");
    return Replace(json, "(\\w+) ([^,]+),?(.*)",
                   R"({"req_type":"$1_session","session_id":$2,"opcodes":[$3]})");
  }

  // Sends messages separated by ';', in JSON or as `start SESSION ID:SSID,SSID ID:SSID`.
  std::string Play(const std::string& script) {
    std::istringstream messages(script);
    for (std::string text; std::getline(messages >> std::ws, text, ';');) {
      peer.Send(text[0] == '{' ? text : Message(text));
    }
    Settle();
    return Heard();
  }

  // The log since the last call, shortened; in the place of what was sent, what was received.
  std::string Heard() {
    std::string text;
    for (const LogLine& line : Log()) {
      EXPECT_EQ(line.priority, ANDROID_LOG_ERROR) << line;
      text += (line.text.rfind("client Sending message ", 0) == 0 ? Next() : line.text) + "\n";
    }
    ClearLog();
    text = Replace(text, "(Client received|Waiting for|Unknown request type 'fence).*", "");
    text = Replace(text, R"(."req_type":"(\w+)_session","session_id":(\d+),"Result":)", "< $1 $2 ");
    return Replace(Replace(Replace(text, "ession 5 with 0x0000", "~"), "\n+", "\n"), "^\n", "");
  }

  std::string Next() { return peer.Next().value_or("lost"); }
  static std::string Lines(const std::string& text) { return Replace(text, "[|]", "\n") + "\n"; }
  static int Abort(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) { abort(); }
  static int TakeSessionLock() { return handle_exec_task(*std::make_unique<Json::Value>(), Abort); }
};

struct Row {
  int level;
  std::string name, refused, before, script, heard;  // heard: lines, by '|'
  friend std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.name; }
};

const Row kRows[] = {
    {4, "Start", "start 0x0000a001::1", R"(start 5 "b002":4;ready 5 "b002":4)",
     R"(start 5 "0xb002":3,4 "a001":3,1,2,9 "c003":1 "zz":1)",
     R"(session_id received is 5|Trying to start s~b002::3|> start 0x0000b002::3 session 5|S~b002::3 success|Trying to start s~b002::4|S~b002::4 already active
Trying to start s~a001::3|> start 0x0000a001::3 session 5|S~a001::3 success|Trying to start s~a001::1|> start 0x0000a001::1 session 5|S~a001::1 failed
Trying to start s~a001::2|> start 0x0000a001::2 session 5|S~a001::2 success|Trying to start s~a001::9|Service does not support requested 0x0000a001::9
< start 5 "Success","opcodes":[{"id":"0x0000a001","subsystems":[{"id":3},{"id":2}]},{"id":"0x0000b002","subsystems":[{"id":3}]}]}|Start session 5 with 3 service (2 failed; 1 duplicate))"},
    {2, "StartThrice", "end", R"(start 5 "0XA001":1)", R"(start 5 "a001":1;start 5 "0xa001":1)",
     R"(session_id received is 5|S~a001::1 never received ready_session. Resetting|< start 5 "Failed"}|Failed to handle session start event|session_id received is 5
> start 0x0000a001::1 session 5|< start 5 "Success","opcodes":[{"id":"0x0000a001","subsystems":[{"id":1}]}]})"},
    {1, "LowLevel", "start", R"(start 5 "a001":1)", R"(start 5 "a001":1,2,9;end 6;end 5 40961:1)",
     R"(session_id received is 5|> start 0x0000a001::2 session 5|Service does not support requested 0x0000a001::9|< start 5 "Failed"}|Failed to handle session start event
< end 6 "Failed"}|Failed to handle end start event|< end 5 "Failed"}|Failed to handle end start event)"},
    {4, "BadIdsAndNoOpcodes", "", "",
     R"(start -1 "a001":1;start "5" "a001":1;ready 1.5 "a001":1;ready 4294967295 "a001":1;{"req_type":"start_session"};end 0)",
     R"(Failed to handle session start event|Failed to handle session start event|Failed to handle session ready event
session_id received is 4294967295|Invalid session_id was passed to handle_session_ready -1|Failed to handle session ready event
session_id received is 0|Trying to create new session 0|< start 0 "Failed"}|Start session 0 with 0 service (0 failed; 0 duplicate)|Failed to handle session start event
Session 0 completely ended|< end 0 "Failed"}|Ended session 0 with 0 service (0 failed)|Failed to handle end start event)"},
    {2, "Ready", "ready", R"(start 5 "a001":1,2)",
     R"(ready 5 "a001":1 "c003":1;ready 5 "a001":1;ready 5 "a001":2 "b002":3;start 5 "a001":2)",
     R"(session_id received is 5|> ready 0x0000a001::1 session 5|session_id received is 5|S~a001::1 already in ready state
session_id received is 5|> ready 0x0000a001::2 session 5|S~b002::3 not started before ready call|session_id received is 5|S~a001::2 already active|< start 5 "Failed"}|Failed to handle session start event)"},
    {4, "End", "end 0x0000b002::3", R"(start 5 "a001":1,2 "b002":3,4)",
     R"({"req_type":"end_session","session_id":5,"opcodes":[{}]};end 5 40961.0:1 "0xa001":2;end 5 40961:1,2 49155:1 45058:3;end 5;end 5)",
     R"(Failed to handle end start event|Trying to end s~a001::1|in inform_session_state|> end 0x0000a001::1 session 5|S~a001::1 terminate success|Failed to handle end start event
Trying to end s~a001::1|S~a001::1 is not active; ignoring|Trying to end s~a001::2|in inform_session_state|> end 0x0000a001::2 session 5
S~a001::2 terminate success|Trying to end s~b002::3|in inform_session_state|> end 0x0000b002::3 session 5|S~b002::3 terminate failed|< end 5 "Success"}
Ended session 5 with 1 service (2 failed)|in inform_session_state|> end 0x0000b002::3 session 5|in inform_session_state|> end 0x0000b002::4 session 5|Session 5 completely ended|< end 5 "Success"}|Ended session 5 with 1 service (1 failed)
Session 5 is not active; ignoring|< end 5 "Failed"}|Ended session 5 with 0 service (0 failed)|Failed to handle end start event)"},
    {1, "TaskInVain", "", R"(start 5 "a001":1,2;ready 5 "a001":2)",
     R"({"req_type":"exec_task","opcode":"a001","subsys_id":1,"session_id":4294967295};
{"req_type":"exec_task","opcode":"a001","subsys_id":3,"session_id":5};{"req_type":"exec_task","opcode":"a001","subsys_id":1,"session_id":5};
{"req_type":"exec_task","opcode":"40961","subsys_id":2,"session_id":5};{"req_type":"exec_task","subsys_id":2,"session_id":5};
{"req_type":"exec_task","opcode":"a001","subsys_id":2,"session_id":5,"func":{"num_of_args":2,"args":[{"type":"uint8","value":1},{"type":"uint8","value":256}]}})",
     R"(Invalid session_id was passed to execute function -1|Failed to handle execute task event|No S~a001::3|Failed to handle execute task event
S~a001::1 not ready|Failed to handle execute task event|Failed to handle execute task event|Failed to handle execute task event|Out of range value for uint8|Failed to handle execute task event)"},
};

struct SessionScripts : SessionTest, testing::WithParamInterface<Row> {};
INSTANTIATE_TEST_SUITE_P(, SessionScripts, testing::ValuesIn(kRows));
TEST_P(SessionScripts, AreHeardWhole) {
  Begin(GetParam().level, Abort);
  Play(GetParam().before);
  recorder.Return(GetParam().refused, 1);
  EXPECT_EQ(Play(GetParam().script), Lines(GetParam().heard));
}

TEST_F(SessionTest, ARejectedPairFollowedByAnotherEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH((Begin(1), Play(R"(start 5 "a001":2;ready 5 "a001":1,2)")), "std::system_error");
}

constexpr const char* kTwoSessions = R"(start 6 "a001":1;start 5 "b002":3 "a001":2)";

TEST_F(SessionTest, AllEndWhenTheLinkCloses) {
  Begin(4);
  Play(kTwoSessions);
  recorder.Return("end 0x0000a001::2", 1);
  peer.HangUpForWriting();
  ASSERT_TRUE(WaitLogged("> reconnected 0x0000a001::0\n"));
  EXPECT_THAT(Heard(),
              testing::HasSubstr(Lines(R"(EXIT|in inform_session_state|> terminated 0x0000a001::0
in inform_session_state|> end 0x0000a001::2 session 5|S~a001::2 terminate failed|in inform_session_state|> end 0x0000b002::3 session 5
S~b002::3 terminate success|in inform_session_state|> end 0x0000a001::1 session 6|Session 6 with 0x0000a001::1 terminate success|Ended session 6 with 2 service (1 failed))")));
}

TEST_F(SessionTest, TerminationReportsWhetherAnythingEnded) {
  EXPECT_EQ(terminate_sessions(), 0);
  Begin(4);
  EXPECT_EQ(terminate_sessions(), -1);
  Play(kTwoSessions);
  EXPECT_EQ(terminate_sessions(), 0);
  EXPECT_THAT(Play(kTwoSessions), testing::HasSubstr("Trying to create new session 5\n"));
  recorder.Return("end", 1);
  EXPECT_EQ(terminate_sessions(), -1);
}

TEST_F(SessionTest, AMalformedMessageLeavesTheLocksFree) {
  Begin(2);
  Json::Value message;
  std::istringstream(Message(R"(start 5 "a001":1,"x")")) >> message;
  EXPECT_THROW(handle_session_start(message), Json::LogicError);
  EXPECT_THAT(Play(R"(start 5 "a001":1)"), testing::HasSubstr("S~a001::1 never received"));
}

// A lock is held when a call that takes it does not come back while the callback runs.
TEST_F(SessionTest, CallbacksRunUnderTheNamedLocks) {
  Begin(4);
  std::string seen;
  std::vector<std::future<int>> probes;
  const auto note = [&](const char* lock, int (*take)()) {
    probes.push_back(std::async(std::launch::async, take));
    const auto outcome = probes.back().wait_for(std::chrono::milliseconds(300));
    seen += outcome == std::future_status::ready ? "" : lock;
  };
  recorder.SetHook([&](const orvd_req_t& req) {
    if (req.type != ORVD_RECONNECTED) {
      supported_services_add(1, 1);
      seen += "|" + std::to_string(req.type);
      note(" session", TakeSessionLock);
      note(" table", send_reconnection_notification);
    }
  });
  Play(R"(start 5 "a001":1;ready 5 "a001":1;end 5;{"req_type":"permission_change"})");
  terminate_sessions();
  EXPECT_EQ(seen, "|2 session|6 session|3 session|4 table|4 table|0");
}

struct TaskTest : SessionTest {
  static inline std::atomic<int> running{0}, held{0};

  static int Fill(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
    ++running;
    Eventually([] { return held == 0; });
    const std::string id = std::to_string(call->transac_id);
    if (id != "-9") {
      std::tie(call->opcode, call->name, call->status, call->ret) = std::tuple("o", "f", 3, -2);
      call->result = id == "8" ? "-1" : id == "9" ? "-10" : "\"x\":" + id;
    }
    return 1;
  }
  void BeginTasks() {
    Begin(1, Fill);
    OpenSession(5, 0xa001, 1);
    ClearLog();
  }
  void Run(int transac_id, int64_t start_time = 0) {
    peer.Send(
        R"({"req_type":"exec_task","opcode":"a001","subsys_id":1,"session_id":5,"transac_id":)" +
        std::to_string(transac_id) + R"(,"start_time":)" + std::to_string(start_time) + "}");
  }
};

const std::string kFilled =
    R"({"opcode":"o","name":"f","subsys_id":"1","req_type":"exec_task","return":-2,"func":{)";

TEST_F(TaskTest, AnswersShowTheCallRecordAndTheLogTheLatency) {
  SetTestProperty("vendor.orvex.mgr.latency_measure", "true");
  const auto now = std::chrono::steady_clock::now().time_since_epoch() / orvd::Milliseconds(1);
  const std::tuple<int, int64_t, std::string, std::string> rows[] = {
      {-9, now - 50000, "5[0-9]{4}",
       R"({"opcode":"","name":"","subsys_id":"1","req_type":"exec_task","return":0,"func":{},"transac_id":-9,"status": 0,"session_id":5})"},
      {7, INT64_MIN, "[0-9]+", kFilled + R"("x":7},"transac_id":7,"status": 3,"session_id":5})"},
      {8, INT64_MAX, "[0-9]+", kFilled + R"(},"transac_id":8,"status": -1,"session_id":5})"},
      {9, 0, "[0-9]+", kFilled + R"(-10},"transac_id":9,"status": 3,"session_id":5})"},
      {-1, 0, "[0-9]+", R"({"req_type":"", "Result":""x":-1"})"},
  };
  BeginTasks();
  for (const auto& [transac_id, start_time, taken, answer] : rows) {
    ClearLog();
    Run(transac_id, start_time);
    EXPECT_EQ(Next(), answer);
    const std::string line = "4 Time taken from ORVEX mgr to PLIX: " + taken + "ms";
    EXPECT_THAT(testing::PrintToString(Log().at(1)), testing::MatchesRegex(line));
  }
  _orvex_call_info_t call{5, -1, 0, 1, "o", "f", "-1", 3, -2};
  orvd_send_response(&call, "mine");
  EXPECT_EQ(Next(), R"({"req_type":"mine", "Result":"-1"})");
}

int TellStackSize(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
  pthread_attr_t attributes{};
  pthread_getattr_np(pthread_self(), &attributes);
  size_t bytes = 0;
  pthread_attr_getstacksize(&attributes, &bytes);
  pthread_attr_destroy(&attributes);
  call->ret = static_cast<int32_t>(bytes >> 20);
  return 0;
}

TEST_F(TaskTest, HaveTheStackOfTheDevice) {
  Begin(1, TellStackSize);
  OpenSession(5, 0xa001, 1);
  Run(7);
  EXPECT_THAT(Next(), testing::HasSubstr(R"("return":1,)"));
}

TEST_F(TaskTest, HundredsAtOnceOutliveTheirSessionAndAreAnsweredOnce) {
  BeginTasks();
  held = 1;
  std::multiset<std::string> expected, answers;
  for (int id = 10; id < 310; ++id) {
    const std::string text = std::to_string(id);
    expected.insert(kFilled + "\"x\":" + text + R"(},"transac_id":)" + text +
                    R"(,"status": 3,"session_id":5})");
    Run(id);
  }
  ASSERT_TRUE(Eventually([] { return running == 300; }));
  EXPECT_THAT(Play("end 5"), testing::EndsWith("< end 5 \"Success\"}\n"));
  held = 0;
  while (answers.size() < expected.size()) {
    answers.insert(Next());
  }
  EXPECT_EQ(answers, expected);
}

TEST_F(TaskTest, DoNotHoldUpTheEndOfTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto begin = std::chrono::steady_clock::now();
  const auto run = [] { return Eventually([] { return running == 1; }) ? 0 : 1; };
  EXPECT_EXIT((held = 1, BeginTasks(), Run(1), exit(run())), testing::ExitedWithCode(0), "");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, orvd::kPatience / 2);
}

}  // namespace
