// The Manager goes away and comes back.

#include <atomic>
#include <filesystem>
#include <regex>
#include <thread>

#include "sessions/session_state.h"
#include "support/service_fixture.h"

namespace {

const std::string kRefused =
    "Failed to connect to ORVEX Manager (connection failed No such file or directory)";

// The milliseconds of the "reconnected" line; -1 without one.
int ReconnectionTime() {
  std::smatch match;
  const std::string log = LogText();
  const std::regex line(
      "reconnected to manager, gMgrSocket_fd is \\d+, total time to reconnect (\\d+)\n");
  return std::regex_search(log, match, line) ? std::stoi(match[1]) : -1;
}

std::atomic<bool> let_go{false};

int SlowTask(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
  Eventually([] { return let_go.load(); });
  call->result = "\"done\":1";
  return 0;
}

std::string Task(int transac_id) {
  return R"({"req_type":"exec_task","opcode":"20","subsys_id":1,"session_id":9,"transac_id":)" +
         std::to_string(transac_id) + R"(,"func":{"name":"f","num_of_args":0,"args":[]}})";
}

long CountThreads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

class ReconnectionTest : public ServiceTest {
 protected:
  ReconnectionTest() {
    SetDebugLevel(4);
    Init();
    Offer(0x20, {1}, SlowTask);
    Offer(0x10, {1});
    OpenSession(9, 0x20, 1);
    recorder.Clear();
    ClearLog();
  }
  void LoseManager() {
    peer.StopListening();
    peer.HangUp();
    ASSERT_TRUE(WaitLogged(kRefused));
  }
};

TEST_F(ReconnectionTest, TheLowestOpcodeIsToldOnceAndTheServiceComesBackOnTheSameConnection) {
  peer.Send(Task(1));
  LoseManager();
  ASSERT_TRUE(Eventually([] { return CountLogged(kRefused) >= 5; }));
  peer.Listen();
  ASSERT_TRUE(recorder.WaitFor("reconnected 0x00000010::0"));
  EXPECT_EQ(recorder.events(),
            "terminated 0x00000010::0\nend 0x00000020::1 session 9\nreconnected 0x00000010::0\n");
  EXPECT_GE(ReconnectionTime(), 200);
  EXPECT_EQ(orvd_svc_init(), kServiceId);  // the id is kept until the service deinitialises

  ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);  // nothing was agreed on this connection: no goodbye
  Init();
  Offer(0x20, {1}, SlowTask);
  EXPECT_EQ(peer.connections(), 2U);
  OpenSession(9, 0x20, 1);
  let_go = true;
  EXPECT_THAT(*peer.NextOf("exec_task"),
              testing::HasSubstr("\"transac_id\":1,"));  // begun before the loss
  peer.Send(Task(2));
  EXPECT_THAT(*peer.NextOf("exec_task"), testing::HasSubstr("\"transac_id\":2,"));
}

TEST_F(ReconnectionTest, AStatusOneCallbackMayInitialiseAgain) {
  std::atomic<int> result{-100};
  recorder.SetHook([&](const orvd_req_t& req) {
    if (req.type == ORVD_RECONNECTED) {
      EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
      result = orvd_svc_init();
    }
  });
  peer.HangUp();
  ASSERT_TRUE(Eventually([&] { return result != -100; }));
  EXPECT_EQ(result, kServiceId);
  Settle();  // the new thread serves
  EXPECT_EQ(peer.connections(), 2U);
}

TEST_F(ReconnectionTest, DeinitialisationEndsIt) {
  LoseManager();
  ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
  ClearLog();
  peer.Listen();
  // An attempt under way may still knock; it is hung up on, not kept, and there is no second.
  EXPECT_FALSE(peer.WaitConnections(3, std::chrono::milliseconds(300)));
  EXPECT_EQ(ReconnectionTime(), -1);
  EXPECT_EQ(recorder.events().find("reconnected"), std::string::npos);
  Init();
  Settle();
}

TEST_F(ReconnectionTest, EachAttemptChoosesThePathAnew) {
  orvd::ManagerPeer dedicated(kDedicatedPath);
  recorder.SetHook([](const orvd_req_t& req) {
    if (req.type ==
        ORVD_TERMINATED) {  // on the thread that will choose: the host's store has no lock
      SetTestProperty("vendor.orvex.one.service", "vendor.radioWarden");
      SetTestProperty("ro.build.type", "eng");
    }
  });
  peer.HangUp();
  EXPECT_TRUE(dedicated.WaitConnected());
  EXPECT_TRUE(recorder.WaitFor("reconnected 0x00000010::0"));
}

TEST_F(ReconnectionTest, AfterTwentySecondsItGivesUpAndTellsNobody) {
  LoseManager();
  EXPECT_TRUE(
      WaitLogged("Failed to reconnect to manager due to time out", std::chrono::seconds(30)));
  EXPECT_THAT(CountLogged(kRefused), testing::AllOf(testing::Gt(100U), testing::Le(402U)));
  EXPECT_EQ(recorder.events(), "terminated 0x00000010::0\nend 0x00000020::1 session 9\n");
}

TEST_F(ReconnectionTest, AReceiveThreadOfBeforeSaysNothingOnTheNewConnection) {
  std::atomic<bool> entered{false};
  std::atomic<bool> leave{false};
  recorder.SetHook([&](const orvd_req_t& req) {
    entered = req.type == ORVD_SESSION_START;
    Eventually([&] { return leave.load(); });
  });
  peer.Send(SessionMessage("start_session", 11, 0x10, {1}));
  ASSERT_TRUE(Eventually([&] { return entered.load(); }));
  ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
  Init();
  leave = true;
  EXPECT_TRUE(WaitLogged("Failed to send start session response to ORVEX Manager"));
  Settle();
  EXPECT_EQ(peer.NextOf("start_session", orvd::Milliseconds(0)), std::nullopt);
}

TEST_F(ReconnectionTest, AReceiveThreadOfBeforeEndsNoSessionOfTheNewConnection) {
  std::atomic<bool> entered{false};
  std::atomic<bool> leave{false};
  recorder.SetHook([&](const orvd_req_t& req) {
    if (req.type == ORVD_TERMINATED) {
      entered = true;
      Eventually([&] { return leave.load(); });
    }
  });
  const long threads = CountThreads();
  peer.HangUp();
  ASSERT_TRUE(Eventually([&] { return entered.load(); }));
  ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
  Init();
  Offer(0x20, {1}, SlowTask);
  OpenSession(11, 0x20, 1);
  leave = true;
  ASSERT_TRUE(Eventually([&] { return CountThreads() == threads; }));
  EXPECT_EQ(recorder.events(),
            "terminated 0x00000010::0\nstart 0x00000020::1 session 11\n"
            "ready 0x00000020::1 session 11\n");
  EXPECT_EQ(peer.connections(), 2U);
}

TEST_F(ReconnectionTest, AReceiveThreadOfBeforeDecidesNothingForTheNewConnection) {
  recorder.SetHook([](const orvd_req_t& req) {
    if (req.type == ORVD_TERMINATED) {  // on the thread that reads them
      SetTestProperty("ro.build.type", "eng");
      SetTestProperty("vendor.orvex.one.plix", "plix_hub");
      SetTestProperty("vendor.orvex.one.markers", "1");
    }
  });
  const long threads = CountThreads();
  LoseManager();
  ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
  orvd::ManagerPeer dedicated(kDedicatedPath);
  dedicated.AgreeToEverything(kServiceId);
  std::thread([] {
    pthread_setname_np(pthread_self(), "plix_hub");
    EXPECT_EQ(orvd_svc_init(), kServiceId);
  }).join();
  ASSERT_TRUE(Eventually([&] { return CountThreads() == threads + 1; }));  // with the second peer's
  orvd_log_marker("mark");
  EXPECT_TRUE(dedicated.NextOf("mark"));
}

TEST_F(ServiceTest, ReconnectionWithNothingReadyIsOnlyLogged) {
  SetDebugLevel(4);
  Init();
  peer.HangUp();
  EXPECT_TRUE(Eventually([] { return CountLogged("No sessions due to no ready opcodes.") == 2; }));
  EXPECT_EQ(send_reconnection_notification(), 0);
}

}  // namespace
