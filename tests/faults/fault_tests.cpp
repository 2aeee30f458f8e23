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
    OpenSession(kSession, 0x10, 1);
    ClearLog();
  }
  void Run(int transac_id) {
    peer.Send(
        R"({"req_type":"exec_task","opcode":"10","subsys_id":1,"session_id":9,"transac_id":)" +
        std::to_string(transac_id) + "}");
  }
  void ExpectAnswer(int transac_id) {
    const std::string answer = peer.NextOf("exec_task").value_or("lost");
    EXPECT_NE(answer.find("\"transac_id\":" + std::to_string(transac_id) + ","), std::string::npos)
        << answer;
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
  for (const int error : {EINTR, ENOMEM}) {
    FailNext(Call::kRecvfrom, error);
    Run(error);  // ends the receive under way
    ExpectAnswer(error);
    EXPECT_TRUE(
        WaitLogged(std::string("Error receiving msg from manager (") +
                   (error == EINTR ? "Interrupted system call)" : "Cannot allocate memory)")));
    Run(error + 100);
    ExpectAnswer(error + 100);
  }
  EXPECT_EQ(recorder.events(), "start 0x00000010::1 session 9\nready 0x00000010::1 session 9\n");
}

// What is said to the Manager, what fails with it, what the service hears.
TEST_F(FaultTest, APacketThatIsNotTakenFailsItsCallAlone) {
  Serve();
  const std::string blob = ApiBlob(0x10, {2});
  struct Row {
    int error;
    std::function<int()> act;
    int result;
    const char* last_line;
  };
  const auto told = [this](const std::string& message) {
    return [this, message] {
      peer.Send(message);
      Settle();
      return 0;
    };
  };
  for (const Row& row : {
           Row{EMSGSIZE, [&] { return _orvd_svc_register_auth(7, 0x10, blob.c_str(), "t"); }, -1,
               "ORVEX service authenticate and registration failed to send to manager."},
           Row{EPIPE, [] { return _orvd_svc_ready(7, 0x10, nullptr, nullptr, nullptr); }, -1,
               "client NOT able to send msg"},
           Row{ENOBUFS, [] { return static_cast<int>(orvd_permission_query(9, {"a"}).size()); }, 1,
               "Failed to receive ORVEX permission query ack"},
           Row{EPIPE,
               [] {
                 return static_cast<int>(orvd_info_query(9, {"a", "b"}).size());
               },
               2, "Failed to receive ORVEX info query ack"},
           Row{ENOBUFS, told(SessionMessage("start_session", 9, 0x10, {3})), 0,
               "Failed to send start session response to ORVEX Manager"},
           Row{ENOBUFS, told(SessionMessage("end_session", 8, 0x10, {1})), 0,
               "Failed to send end session response to ORVEX Manager"},
       }) {
    SCOPED_TRACE(row.last_line);
    ClearLog();
    FailNext(Call::kSendto, row.error);
    EXPECT_EQ(row.act(), row.result);
    EXPECT_EQ(StillToFail(Call::kSendto), 0);
    EXPECT_EQ(CountLogged("client NOT able to send msg"), 1U);
    EXPECT_EQ(CountLogged(row.last_line), 1U);
    Run(1);
    ExpectAnswer(1);
  }
  FailNext(Call::kSendto, EPIPE);
  Run(2);  // its answer is lost
  EXPECT_TRUE(Eventually([] { return StillToFail(Call::kSendto) == 0; }));
  Run(3);
  ExpectAnswer(3);
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
  std::future<int> probe;
  bool held = false;
  SetSendHook([&](int /*fd*/) {
    probe = std::async(std::launch::async, [] {
      Json::Value message;
      return handle_exec_task(message, Answer);
    });
    held = probe.wait_for(std::chrono::milliseconds(300)) != std::future_status::ready;
  });
  Json::Value message;
  message["session_id"] = 5;
  EXPECT_EQ(handle_session_end(message), -1);
  SetSendHook(nullptr);
  EXPECT_TRUE(held);
}

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  std::istringstream(text) >> value;
  return value;
}

// What one call leaves allocated, on average.
size_t Left(const std::function<void()>& act) {
  constexpr size_t kCalls = 1000;
  const auto act_quietly = [&act] {
    act();
    ClearLog();
  };
  act_quietly();
  const size_t before = mallinfo2().uordblks;
  for (size_t i = 0; i < kCalls; ++i) {
    act_quietly();
  }
  return (mallinfo2().uordblks - before) / kCalls;
}

// Allocated sizes are rounded up by the heap.
constexpr size_t kRounding = 16;

TEST_F(FaultTest, WhatIsLeftAllocatedOnPurposeIsLeftAndNothingElse) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer has a heap of its own";
#endif
  Serve();
  const std::string task =
      R"({"opcode":"10","subsys_id":1,"session_id":9,"func":{"num_of_args":1,"args":[)";
  auto refused = Parsed(task + R"({"type":"uint8","value":256}]}})");
  const size_t record = Left([&] { EXPECT_EQ(handle_exec_task(refused, Answer), -1); });
  EXPECT_THAT(record, testing::AllOf(testing::Ge(sizeof(_orvex_call_info_t)),
                                     testing::Le(sizeof(_orvex_call_info_t) + kRounding)));

  const size_t both_maps = sizeof(orvex_typed_map_t) + sizeof(orvex_value_map_t);
  const auto maps_alone =
      testing::AllOf(testing::Ge(both_maps), testing::Le(both_maps + 2 * kRounding));
  orvex_func_call_info_t info{};
  auto bad_member = Parsed(task + R"({"members":[{"type":"uint8","value":256}]}]}})");
  EXPECT_THAT(Left([&] { EXPECT_EQ(AddStructParams(bad_member, 0, &info), -1); }), maps_alone);
  auto taken = Parsed(task + R"({"members":[]}]}})");
  EXPECT_THAT(Left([&] { EXPECT_EQ(AddStructParams(taken, 0, &info), 0); }), maps_alone);

  int names = 0;
  EXPECT_GE(Left([&] {
              auto vector = Parsed(R"({"value":[]})");
              vector["vec_type"] = "unknown " + std::to_string(++names);
              EXPECT_EQ(AddVectorParams(vector, 0, 0, &info), 0);
            }),
            sizeof(std::pair<std::string, orvex_data_type_t>));
}

}  // namespace
