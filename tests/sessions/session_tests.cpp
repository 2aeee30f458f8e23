// Sessions and their tasks.

#include <pthread.h>

#include <set>
#include <shared_mutex>

#include "sessions/session_start.h"
#include "sessions/terminate_sessions.h"
#include "support/args_of.h"
#include "support/script_test.h"

extern "C" const char* __lsan_default_suppressions() {
  return "leak:NewCallRecord\n";  // a refused task never frees its call record, on purpose
}

namespace {

using SessionScript = ScriptTest;

TEST_F(SessionScript, Start) {
  Begin(4);
  Prepare({Session("start", 5, {{"b002", {4}}}), Session("ready", 5, {{"b002", {4}}})});
  recorder.Return("start 0x0000a001::1", 1);
  Expect(
      Session("start", 5, {{"0xb002", {3, 4}}, {"a001", {3, 1, 2, 9}}, {"c003", {1}}, {"zz", {1}}}),
      R"(
session_id received is 5|Trying to start session 5 with 0x0000b002::3|[session]> start 0x0000b002::3 session 5|Session 5 with 0x0000b002::3 success|Trying to start session 5 with 0x0000b002::4|Session 5 with 0x0000b002::4 already active
Trying to start session 5 with 0x0000a001::3|[session]> start 0x0000a001::3 session 5|Session 5 with 0x0000a001::3 success|Trying to start session 5 with 0x0000a001::1|[session]> start 0x0000a001::1 session 5|Session 5 with 0x0000a001::1 failed
Trying to start session 5 with 0x0000a001::2|[session]> start 0x0000a001::2 session 5|Session 5 with 0x0000a001::2 success|Trying to start session 5 with 0x0000a001::9|Service does not support requested 0x0000a001::9
{"req_type":"start_session","session_id":5,"Result":"Success","opcodes":[{"id":"0x0000a001","subsystems":[{"id":3},{"id":2}]},{"id":"0x0000b002","subsystems":[{"id":3}]}]}|Start session 5 with 3 service (2 failed; 1 duplicate))");
}

TEST_F(SessionScript, RepeatedStart) {
  Begin(4);
  recorder.Return("end", 1);
  Json::Value bad = orvd::ParseObject(Session("start", 5, {{"0XA001", {1, "x"}}}));
  EXPECT_THROW(handle_session_start(bad), Json::LogicError);
  Expect(R"(
session_id received is 5|Trying to create new session 5|Trying to start session 5 with 0x0000a001::1|[session]> start 0x0000a001::1 session 5|Session 5 with 0x0000a001::1 success)");
  Expect(Session("start", 5, {{"a001", {1}}}), R"(
session_id received is 5|Trying to start session 5 with 0x0000a001::1|Session 5 with 0x0000a001::1 never received ready_session. Resetting|{"req_type":"start_session","session_id":5,"Result":"Failed"}|Start session 5 with 0 service (1 failed; 0 duplicate)|Failed to handle session start event)");
  Expect(Session("start", 5, {{"0xa001", {1}}}), R"(
session_id received is 5|Trying to start session 5 with 0x0000a001::1|[session]> start 0x0000a001::1 session 5|Session 5 with 0x0000a001::1 success|{"req_type":"start_session","session_id":5,"Result":"Success","opcodes":[{"id":"0x0000a001","subsystems":[{"id":1}]}]}|Start session 5 with 1 service (0 failed; 0 duplicate))");
  Expect(Session("ready", 5, {{"a001", {1}}}), R"(
session_id received is 5|Trying to ready session 5 with 0x0000a001::1|[session]> ready 0x0000a001::1 session 5)");
}

TEST_F(SessionScript, LogAtLevelOne) {
  Begin(1);
  Prepare({Session("start", 5, {{"a001", {1}}})});
  recorder.Return("start", 1);
  Expect(Session("start", 5, {{"a001", {1, 2, 4294967295}}}), R"(
session_id received is 5|[session]> start 0x0000a001::2 session 5|Service does not support requested 0x0000a001::4294967295|{"req_type":"start_session","session_id":5,"Result":"Failed"}|Failed to handle session start event)");
  Expect(Session("end", 4294967295, {}), R"(
{"req_type":"end_session","session_id":4294967295,"Result":"Failed"}|Failed to handle end start event)");
  Expect(Session("end", 5, {{40961, {1}}}), R"(
{"req_type":"end_session","session_id":5,"Result":"Failed"}|Failed to handle end start event)");
}

TEST_F(SessionScript, BadIdsAndNoOpcodes) {
  Begin(4);
  for (const Json::Value& id : {Json::Value(4294967296), Json::Value("5"), Json::Value()}) {
    Expect(Session("start", id, {{"a001", {1}}}), "\nFailed to handle session start event");
  }
  Expect(Session("ready", 1.5, {{"a001", {1}}}), "\nFailed to handle session ready event");
  Expect(Session("ready", 4294967295, {{"a001", {1}}}), R"(
session_id received is 4294967295|Invalid session_id was passed to handle_session_ready -1|Failed to handle session ready event)");
  Expect(R"({"req_type":"start_session","opcodes":{}})", R"(
session_id received is 0|Trying to create new session 0|{"req_type":"start_session","session_id":0,"Result":"Failed"}|Start session 0 with 0 service (0 failed; 0 duplicate)|Failed to handle session start event)");
  Expect(Session("end", 0, {}), R"(
Session 0 completely ended|{"req_type":"end_session","session_id":0,"Result":"Failed"}|Ended session 0 with 0 service (0 failed)|Failed to handle end start event)");
}

TEST_F(SessionScript, Ready) {
  Begin(3);
  Prepare({Session("start", 5, {{"a001", {1, 2}}})});
  recorder.Return("ready", 1);
  Expect(Session("ready", 5, {{"a001", {1}}, {"c003", {1}}}), R"(
session_id received is 5|[session]> ready 0x0000a001::1 session 5)");
  Expect(Session("ready", 5, {{"a001", {1}}}), R"(
session_id received is 5|Session 5 with 0x0000a001::1 already in ready state)");
  Expect(Session("ready", 5, {{"a001", {2}}, {"b002", {3}}}), R"(
session_id received is 5|[session]> ready 0x0000a001::2 session 5|Session 5 with 0x0000b002::3 not started before ready call)");
  Expect(Session("start", 5, {{"a001", {2}}}), R"(
session_id received is 5|Session 5 with 0x0000a001::2 already active|{"req_type":"start_session","session_id":5,"Result":"Failed"}|Failed to handle session start event)");
  Expect(Session("end", 5, {}), R"(
in inform_session_state|[session]> end 0x0000a001::1 session 5|in inform_session_state|[session]> end 0x0000a001::2 session 5|{"req_type":"end_session","session_id":5,"Result":"Success"})");
}

TEST_F(SessionScript, End) {
  Begin(4);
  Prepare({Session("start", 5, {{"a001", {1, 2}}, {"b002", {3, 4}}})});
  recorder.Return("end 0x0000b002::3", 1);
  for (const std::string opcode : {"{}", R"({"id":1.5})", R"({"id":4294967296})"}) {
    Expect(R"({"req_type":"end_session","session_id":5,"opcodes":[)" + opcode + "]}",
           "\nFailed to handle end start event");
  }
  Expect(Session("end", 5, {{40961.0, {1}}, {"0xa001", {2}}}), R"(
Trying to end session 5 with 0x0000a001::1|in inform_session_state|[session]> end 0x0000a001::1 session 5|Session 5 with 0x0000a001::1 terminate success|Failed to handle end start event)");
  Expect(Session("end", 5, {{40961, {1, 2}}, {4294967295, {1}}, {45058, {3}}}), R"(
Trying to end session 5 with 0x0000a001::1|Session 5 with 0x0000a001::1 is not active; ignoring|Trying to end session 5 with 0x0000a001::2|in inform_session_state|[session]> end 0x0000a001::2 session 5|Session 5 with 0x0000a001::2 terminate success|Trying to end session 5 with 0x0000b002::3|in inform_session_state|[session]> end 0x0000b002::3 session 5|Session 5 with 0x0000b002::3 terminate failed|{"req_type":"end_session","session_id":5,"Result":"Success"}|Ended session 5 with 1 service (2 failed))");
  Expect(R"({"req_type":"end_session","session_id":5,"opcodes":5})", R"(
in inform_session_state|[session]> end 0x0000b002::3 session 5|in inform_session_state|[session]> end 0x0000b002::4 session 5|Session 5 completely ended|{"req_type":"end_session","session_id":5,"Result":"Success"}|Ended session 5 with 1 service (1 failed))");
  Expect(Session("end", 5, {}), R"(
Session 5 is not active; ignoring|{"req_type":"end_session","session_id":5,"Result":"Failed"}|Ended session 5 with 0 service (0 failed)|Failed to handle end start event)");
}

TEST_F(SessionScript, RefusedTasks) {
  Begin(1);
  Prepare({Session("start", 5, {{"a001", {1, 2}}}), Session("ready", 5, {{"a001", {2}}})});
  const std::string refused = "\nFailed to handle execute task event";
  Expect(orvd::TaskMessage(4294967295, 0xa001, 1, 0),
         "\nInvalid session_id was passed to execute function -1" + refused);
  Expect(orvd::TaskMessage(5, 0xa001, 4294967295, 0),
         "\nNo Session 5 with 0x0000a001::4294967295" + refused);
  Expect(orvd::TaskMessage(5, 0xa001, 1, 0), "\nSession 5 with 0x0000a001::1 not ready" + refused);
  Expect(R"({"req_type":"exec_task","opcode":"40961","subsys_id":2,"session_id":5})", refused);
  Expect(R"({"req_type":"exec_task","subsys_id":2,"session_id":5})", refused);
  Expect(orvd::TaskMessage(5, 0xa001, 2, 0, "f", ArgsOf("u8:1 u8:256")),
         "\nOut of range value for uint8" + refused);
}

TEST_F(SessionScript, Terminate) {
  Begin(4);
  Prepare(
      {Session("start", 6, {{"a001", {1}}}), Session("start", 5, {{"b002", {3}}, {"a001", {2}}})});
  recorder.Return("end 0x0000a001", 1);
  EXPECT_EQ(terminate_sessions(), 0);
  Expect(R"(
in inform_session_state|> terminated 0x0000a001::0|in inform_session_state|[session]> end 0x0000a001::2 session 5|Session 5 with 0x0000a001::2 terminate failed
in inform_session_state|[session]> end 0x0000b002::3 session 5|Session 5 with 0x0000b002::3 terminate success|in inform_session_state|[session]> end 0x0000a001::1 session 6|Session 6 with 0x0000a001::1 terminate failed|Ended session 6 with 1 service (2 failed))");
  EXPECT_EQ(terminate_sessions(), -1);
  Expect(R"(
in inform_session_state|> terminated 0x0000a001::0|Ended session 0 with 0 service (0 failed))");
  Prepare({Session("start", 6, {{"a001", {1}}})});
  EXPECT_EQ(terminate_sessions(), -1);
  Expect(R"(
in inform_session_state|> terminated 0x0000a001::0|in inform_session_state|[session]> end 0x0000a001::1 session 6|Session 6 with 0x0000a001::1 terminate failed|Ended session 6 with 0 service (1 failed))");
}

TEST_F(SessionScript, NothingReady) {
  Begin(4);
  EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
  EXPECT_EQ(terminate_sessions(), 0);
  EXPECT_EQ(send_reconnection_notification(), 0);
  Expect(R"(
{"req_type":"DINT","Service_Id":7}|EXIT|gService_id is -1, svc_id is 7|No sessions due to no ready opcodes.|No sessions due to no ready opcodes.)");
}

TEST_F(ScriptTest, ARejectedPairFollowedByAnotherEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH((Begin(1), Prepare({Session("start", 5, {{"a001", {2}}}),
                                   Session("ready", 5, {{"a001", {1, 2}}})})),
               "std::system_error");
}

int StackSizeInMebibytes() {
  pthread_attr_t attributes{};
  pthread_getattr_np(pthread_self(), &attributes);
  size_t bytes = 0;
  pthread_attr_getstacksize(&attributes, &bytes);
  pthread_attr_destroy(&attributes);
  return static_cast<int>(bytes >> 20);
}

// `status` is the size of the task thread's stack in MiB; -1 for a failure.
std::string Filled(int transac_id, const std::string& result, int status = 1) {
  return R"({"opcode":"o","name":"f","subsys_id":"1","req_type":"exec_task","return":-2,"func":{)" +
         result + R"(},"transac_id":)" + std::to_string(transac_id) + R"(,"status": )" +
         std::to_string(status) + R"(,"session_id":5})";
}

struct TaskTest : ScriptTest {
  static inline std::atomic<int> running{0};
  static inline std::shared_mutex gate;  // tasks pass while the test does not hold it

  static int Fill(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
    ++running;
    const std::shared_lock<std::shared_mutex> pass(gate);
    const int id = call->transac_id;
    if (id != -9) {
      std::tie(call->opcode, call->name, call->ret) = std::tuple("o", "f", -2);
      call->status = StackSizeInMebibytes();
      call->result = id == 8 ? "-1" : id == 9 ? "-10" : "\"x\":" + std::to_string(id);
    }
    return 1;
  }
  void BeginTasks() {
    Begin(1, Fill);
    OpenSession(5, 0xa001, 1);
    ClearLog();
  }
  void Run(int transac_id, int64_t start_time = 0) {
    peer.Send(orvd::TaskMessage(5, 0xa001, 1, transac_id,
                                R"(,"start_time":)" + std::to_string(start_time)));
  }
};

TEST_F(TaskTest, AnswersContainTheCallRecordAndTheLogTheLatency) {
  android::base::SetProperty("vendor.orvex.mgr.latency_measure", "true");
  const auto now = std::chrono::steady_clock::now().time_since_epoch() / orvd::Milliseconds(1);
  const std::tuple<int, int64_t, std::string, std::string> rows[] = {
      {-9, now - 50000, "5[0-9]{4}",
       R"({"opcode":"","name":"","subsys_id":"1","req_type":"exec_task","return":0,"func":{},"transac_id":-9,"status": 0,"session_id":5})"},
      {7, INT64_MIN, "[0-9]+", Filled(7, "\"x\":7")},
      {8, INT64_MAX, "[0-9]+", Filled(8, "", -1)},
      {9, 0, "[0-9]+", Filled(9, "-10")},
      {-1, 0, "[0-9]+", R"({"req_type":"", "Result":""x":-1"})"},
  };
  BeginTasks();
  // -9: the task sets nothing. 8: the result -1 means a failure. -1: the answer is a short one.
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

TEST_F(TaskTest, ConcurrentTasksAreAnsweredOnceAfterTheirSessionHasEnded) {
  BeginTasks();
  std::unique_lock<std::shared_mutex> closed(gate);
  std::multiset<std::string> expected, answers;
  for (int id = 10; id < 310; ++id) {
    expected.insert(Filled(id, "\"x\":" + std::to_string(id)));
    Run(id);
  }
  ASSERT_TRUE(Eventually([] { return running == 300; }));
  Expect(Session("end", 5, {}), R"(
in inform_session_state|[session]> end 0x0000a001::1 session 5|{"req_type":"end_session","session_id":5,"Result":"Success"})");
  closed.unlock();
  while (answers.size() < expected.size()) {
    answers.insert(Next());
  }
  EXPECT_EQ(answers, expected);
}

}  // namespace
