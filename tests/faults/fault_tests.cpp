// What the system refuses: sockets, threads, memory, packets.

#include <json/json.h>
#include <malloc.h>

#include <cerrno>
#include <future>

#include "sessions/exec_task.h"
#include "sessions/session_end.h"
#include "support/faults.h"
#include "support/service_fixture.h"

namespace {

int Answer(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
  call->result = "\"done\":1";
  return 0;
}

constexpr uint32_t kSession = 9;

class FaultTest : public ServiceTest {
 protected:
  FaultTest() { SetDebugLevel(1); }
  void Serve() {
    Init();
    Offer(0x10, {1}, Answer);
    recorder.Clear();
    OpenSession(kSession, 0x10, 1);
    ASSERT_TRUE(recorder.WaitFor("ready 0x00000010::1 session 9"));  // two threads may read
    ClearLog();
  }
  void Run(int transac_id) { peer.Send(TaskMessage(kSession, 0x10, 1, transac_id)); }
  void ExpectAnswer(int transac_id) {
    EXPECT_THAT(peer.NextOf("exec_task").value_or("lost"),
                testing::HasSubstr("\"transac_id\":" + std::to_string(transac_id) + ","));
  }
};

TEST_F(FaultTest, AnInitialisationThatFailsCanBeRepeated) {
  struct Row {
    Call call;
    int error;
    size_t connections;  // since the start, once it has failed
    std::string log;
  };
  for (const Row& row :
       {Row{Call::kSocket, EMFILE, 0,
            "Failed to connect to ORVEX Manager (socket creation failed Too many open files)\n"},
        Row{Call::kThread, EAGAIN, 2, ""},
        Row{Call::kSendto, ENOBUFS, 3,
            "client Sending message {\"req_type\":\"INIT\"}\nclient NOT able to send msg\n"
            "Failed to initiate communication with server\n"}}) {
    SCOPED_TRACE(row.error);
    ClearLog();
    FailNext(row.call, row.error);
    EXPECT_EQ(orvd_svc_init(), -1);
    EXPECT_EQ(LogText(), row.log);
    // The socket that was left open is used; where a thread still reads it, either may.
    EXPECT_TRUE(peer.WaitConnections(row.connections));
    Serve();
    Run(1);
    ExpectAnswer(1);
    EXPECT_EQ(peer.connections(), std::max<size_t>(row.connections, 1));
    peer.Send(SessionMessage("end_session", kSession, 0x10, {1}));
    EXPECT_TRUE(peer.NextOf("end_session"));
    EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
    EXPECT_TRUE(WaitLogged(
        "recv_msg_from_mgr: recv failed, exit thread.. in_size = -1, error 9:(Bad file descriptor)"));
  }
}

TEST_F(FaultTest, AReceiveErrorIsLoggedAndTriedAgain) {
  Serve();
  for (const auto& [error, text] :
       {std::pair{EINTR, "Interrupted system call"}, {ENOMEM, "Cannot allocate memory"}}) {
    const auto start = std::chrono::steady_clock::now();
    FailNext(Call::kRecvfrom, error);
    Run(error);  // ends the receive under way
    ExpectAnswer(error);
    EXPECT_TRUE(WaitLogged("Error receiving msg from manager (" + std::string(text) + ")"));
    Run(error + 100);
    ExpectAnswer(error + 100);
    EXPECT_GE(std::chrono::steady_clock::now() - start, orvd::Milliseconds(500));  // the pause
  }
  EXPECT_EQ(recorder.events(), "start 0x00000010::1 session 9\nready 0x00000010::1 session 9\n");
}

TEST_F(FaultTest, APacketThatIsNotTakenFailsItsCallAlone) {
  Serve();
  const auto handle = [this](const std::string& message) {
    peer.Send(message);
    Settle();
    return 0;
  };
  struct Row {
    std::function<int()> act;
    int result;
    const char* last_line;
  };
  for (const Row& row : {
           Row{[] { return Register(0x10, {2}); }, -1,
               "ORVEX service authenticate and registration failed to send to manager."},
           Row{[] { return Ready(0x10); }, -1, "client NOT able to send msg"},
           Row{[] { return static_cast<int>(orvd_permission_query(9, {"a"}).size()); }, 1,
               "Failed to receive ORVEX permission query ack"},
           Row{[] {
                 return static_cast<int>(orvd_info_query(9, {"a", "b"}).size());
               },
               2, "Failed to receive ORVEX info query ack"},
           Row{[&] { return handle(SessionMessage("start_session", 9, 0x10, {3})); }, 0,
               "Failed to send start session response to ORVEX Manager"},
           Row{[&] { return handle(SessionMessage("end_session", 8, 0x10, {1})); }, 0,
               "Failed to send end session response to ORVEX Manager"},
       }) {
    SCOPED_TRACE(row.last_line);
    ClearLog();
    FailNext(Call::kSendto, EPIPE);
    EXPECT_EQ(row.act(), row.result);
    EXPECT_EQ(CountLogged("client NOT able to send msg"), 1U);
    EXPECT_EQ(CountLogged(row.last_line), 1U);
    Run(1);
    ExpectAnswer(1);
  }
  FailNext(Call::kSendto, EPIPE, 2);
  EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
  EXPECT_EQ(CountLogged("Failed to receive ORVEX deinit ack; proceeding anyways"), 1U);
  EXPECT_EQ(CountLogged("Failed to disconnect to manager - proceeding anyways"), 1U);
  EXPECT_TRUE(peer.WaitEndOfFile());
}

TEST_F(FaultTest, ATaskWithoutACallRecordIsRefused) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's calloc cannot be made to fail";
#endif
  Serve();
  FailNext(Call::kCallRecord, ENOMEM);
  Run(1);
  Run(2);
  ExpectAnswer(2);
  EXPECT_EQ(CountLogged("Out of memory"), 1U);
  EXPECT_EQ(CountLogged("Failed to handle execute task event"), 1U);
}

TEST_F(FaultTest, ATaskWithoutAThreadEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH((Serve(), FailNext(Call::kThread, EAGAIN), Run(1), Eventually([] { return false; })),
               "std::system_error(.|\n)*thread constructor failed");
}

TEST_F(FaultTest, AnUnknownSessionIsAnsweredUnderTheSessionLock) {
  Init();
  std::future<int> task;  // waits for the lock
  SetSendHook([&](int /*fd*/) {
    task = std::async(std::launch::async, [] {
      Json::Value of_no_session;
      return handle_exec_task(of_no_session, Answer);
    });
    EXPECT_EQ(task.wait_for(orvd::Milliseconds(100)), std::future_status::timeout);
  });
  Json::Value message;
  message["session_id"] = 5;
  EXPECT_EQ(handle_session_end(message), -1);
  SetSendHook(nullptr);
  EXPECT_TRUE(task.valid());
}

TEST_F(FaultTest, WhatIsLeftAllocatedOnPurposeIsLeft) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer has a heap of its own";
#endif
  Serve();
  Json::Value task;
  std::istringstream(
      R"({"opcode":"10","subsys_id":1,"session_id":9,"func":{"num_of_args":1,)"
      R"("args":[{"type":"uint8","value":-1,"members":[{"type":"uint8","value":-1}]}]}})") >>
      task;
  orvex_func_call_info_t info{};
  const auto refuse_task = [&] { return handle_exec_task(task, Answer); };
  const auto refuse_struct = [&] { return AddStructParams(task, 0, &info); };
  const auto left = [](const auto& refuse) {  // by a hundred
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i) {
      EXPECT_EQ(refuse(), -1);
      ClearLog();
    }
    return mallinfo2().uordblks - before;
  };
  EXPECT_GE(left(refuse_task), 100 * sizeof(_orvex_call_info_t));
  EXPECT_GE(left(refuse_struct), 100 * (sizeof(orvex_typed_map_t) + sizeof(orvex_value_map_t)));
}

}  // namespace
