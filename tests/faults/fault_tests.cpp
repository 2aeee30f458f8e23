// System calls fail: sockets, threads, memory, packets.

#include <json/json.h>
#include <malloc.h>

#include <cerrno>
#include <future>
#include <thread>

#include "orvex_simulator/json_text.h"
#include "sessions/exec_task.h"
#include "sessions/session_end.h"
#include "support/faults.h"
#include "support/held_locks.h"
#include "support/service_fixture.h"

namespace {

int Answer(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  return 0;
}

class FaultTest : public ServiceTest {
 protected:
  FaultTest() { SetDebugLevel(1); }
  void Start() {
    Init();
    Offer(0x10, {1}, Answer);
    OpenSession(9, 0x10, 1);
    ClearLog();
  }
  void Run(int transac_id) { peer.Send(orvd::TaskMessage(9, 0x10, 1, transac_id)); }
  void ExpectAnswered(int transac_id) {
    Run(transac_id);
    EXPECT_THAT(peer.NextOf("exec_task").value_or("lost"),
                testing::HasSubstr("\"transac_id\":" + std::to_string(transac_id) + ","));
  }
};

TEST_F(FaultTest, FailedInitialisationCanBeRepeated) {
  // The third column is the number of connections since the start of the test, after the failed
  // call.
  const std::tuple<Call, int, size_t, const char*> rows[] = {
      {Call::kSocket, EMFILE, 0,
       "Failed to connect to ORVEX Manager (socket creation failed Too many open files)\n"},
      {Call::kThread, EAGAIN, 2, ""},
      {Call::kSendto, ENOBUFS, 3,
       "client Sending message {\"req_type\":\"INIT\"}\nclient NOT able to send msg\n"
       "Failed to initiate communication with server\n"}};
  for (const auto& [call, error, connections, log] : rows) {
    SCOPED_TRACE(error);
    ClearLog();
    FailNext(call, error);
    EXPECT_EQ(orvd_svc_init(), -1);
    EXPECT_EQ(LogText(), log);
    // The second call uses the socket that the failed call left open. If that call's receive thread
    // still runs, either thread may read the socket.
    EXPECT_TRUE(peer.WaitConnections(connections));
    Init();
    Offer(0x10, {1});
    EXPECT_EQ(peer.connections(), std::max<size_t>(connections, 1));
    EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
    EXPECT_TRUE(WaitLogged(
        "recv_msg_from_mgr: recv failed, exit thread.. in_size = -1, error 9:(Bad file descriptor)"));
  }
}

TEST_F(FaultTest, ReceiveErrorIsLoggedAndTheReceiveIsRepeated) {
  Start();
  for (const auto& [error, text] :
       {std::pair{EINTR, "Interrupted system call"}, {ENOMEM, "Cannot allocate memory"}}) {
    const auto start = std::chrono::steady_clock::now();
    FailNext(Call::kRecvfrom, error);
    ExpectAnswered(error);  // ends the current receive
    EXPECT_TRUE(WaitLogged("Error receiving msg from manager (" + std::string(text) + ")"));
    ExpectAnswered(error + 100);
    EXPECT_GE(std::chrono::steady_clock::now() - start, orvd::Milliseconds(500));  // the pause
  }
  EXPECT_EQ(Events(), "");
}

TEST_F(FaultTest, FailedSendAffectsOnlyItsCall) {
  Start();
  const auto handle = [this](const std::string& message) {
    peer.Send(message);
    Settle();
    return 0;
  };
  const std::tuple<std::function<int()>, int, const char*> rows[] = {
      {[] { return Register(0x10, {2}); }, -1,
       "ORVEX service authenticate and registration failed to send to manager."},
      {[] { return Ready(0x10); }, -1, "client NOT able to send msg"},
      {[] { return static_cast<int>(orvd_permission_query(9, {"a"}).size()); }, 1,
       "Failed to receive ORVEX permission query ack"},
      {[] { return static_cast<int>(orvd_info_query(9, {"a"}).size()); }, 1,
       "Failed to receive ORVEX info query ack"},
      {[&] { return handle(orvd::SessionMessage("start_session", 9, 0x10, {3})); }, 0,
       "Failed to send start session response to ORVEX Manager"},
      {[&] { return handle(orvd::SessionMessage("end_session", 8, 0x10, {1})); }, 0,
       "Failed to send end session response to ORVEX Manager"}};
  for (const auto& [act, result, last_line] : rows) {
    SCOPED_TRACE(last_line);
    ClearLog();
    FailNext(Call::kSendto, EPIPE);
    EXPECT_EQ(act(), result);
    EXPECT_EQ(CountLogged("client NOT able to send msg"), 1U);
    EXPECT_EQ(CountLogged(last_line), 1U);
    ExpectAnswered(1);
  }
  FailNext(Call::kSendto, EPIPE, 2);
  EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
  EXPECT_EQ(CountLogged("Failed to receive ORVEX deinit ack; proceeding anyways"), 1U);
  EXPECT_EQ(CountLogged("Failed to disconnect to manager - proceeding anyways"), 1U);
  EXPECT_TRUE(peer.WaitEndOfFile());
}

TEST_F(FaultTest, EachCallForAnOpcodeTakesAnAnswerOfItsOwn) {
  Start();
  peer.SetRule("REDY", nullptr);
  auto first = std::async(std::launch::async, [] { return Ready(0x10); });
  ASSERT_TRUE(peer.NextOf("REDY"));
  peer.WaitForRules();            // the rule below is not for this message
  OnNextPacket([&](int /*fd*/) {  // of the second call, which is about to wait
    peer.Send(orvd::OpcodeAnswer("REDY", 0x10, 0));
    EXPECT_EQ(first.get(), 0);
  });
  peer.SetRule("REDY", [](auto) {
    std::this_thread::sleep_for(orvd::Milliseconds(50));  // a call that does not wait returns first
    return std::optional(orvd::OpcodeAnswer("REDY", 0x10, -1));
  });
  EXPECT_EQ(Ready(0x10), -1);
}

TEST_F(FaultTest, FailureToStartATaskThreadEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH((Start(), FailNext(Call::kThread, EAGAIN), Run(1), Eventually([] { return false; })),
               "std::system_error(.|\n)*thread constructor failed");
}

TEST_F(FaultTest, AnswerForAnUnknownSessionIsSentWithTheSessionMutexHeld) {
  Init();
  Json::Value message = orvd::ParseObject(R"({"session_id":5})");
  pthread_mutex_t* const session_lock = FirstLockOf([&] { handle_exec_task(message, Answer); });
  bool is_held = false;
  OnNextPacket([&](int /*fd*/) { is_held = IsHeld(session_lock); });
  EXPECT_EQ(handle_session_end(message), -1);
  EXPECT_TRUE(is_held);
}

// A sanitizer has its own heap, and its calloc cannot be made to fail.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(FaultTest, TaskIsRefusedWhenItsCallRecordCannotBeAllocated) {
  Start();
  FailNext(Call::kCallRecord, ENOMEM);
  Run(1);
  ExpectAnswered(2);
  EXPECT_EQ(CountLogged("Out of memory"), 1U);
  EXPECT_EQ(CountLogged("Failed to handle execute task event"), 1U);
}

TEST_F(FaultTest, RefusedTaskDoesNotFreeItsCallRecordAndMemberMaps) {
  Start();
  Json::Value task =
      orvd::ParseObject(R"({"opcode":"10","subsys_id":1,"session_id":9,"func":{"num_of_args":1,)"
                        R"("args":[{"type":"struct","members":[{"type":"uint8","value":-1}]}]}})");
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(handle_exec_task(task, Answer), -1);
    ClearLog();
  }
  constexpr size_t kMaps = sizeof(orvex_typed_map_t) + sizeof(orvex_value_map_t);
  EXPECT_GE(mallinfo2().uordblks - before, 100 * (sizeof(_orvex_call_info_t) + kMaps));
}
#endif

}  // namespace
