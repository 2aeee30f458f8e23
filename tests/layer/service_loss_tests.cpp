// A service of the C++ layer whose Manager is not there, refuses, does not answer, or goes.

#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "layer/hub_test.h"

namespace {

using std::string, testing::HasSubstr;

TEST_F(HubTest, WithoutAManagerTheServiceWaitsForOneOrForStop) {
  const string away = " failed, the Manager cannot be reached; tries again in ";
  peer.StopListening();
  RunAside();
  ASSERT_TRUE(WaitLogged("hub: the initialisation" + away + "50 ms"));
  ASSERT_TRUE(WaitLogged("hub: the initialisation" + away + "100 ms"));
  SetLogHook([&](const string& line) {  // on Run's thread, before the registration is sent
    if (line.rfind("json is ", 0) == 0) {
      SetLogHook(nullptr);
      peer.StopListening();
      peer.HangUp();
      EXPECT_TRUE(WaitLogged(
          "Failed to connect to ORVEX Manager (connection failed No such file or directory)"));
    }
  });
  peer.Listen();
  ASSERT_TRUE(WaitLogged("hub: the registration of opcode 0x0000a001" + away + "200 ms"));
  peer.Listen();
  ExpectService(9);
  EXPECT_EQ(Heard(), "start/9/0/1 ready/9/0/1 ");  // it had not served: nothing is lost or back
  EXPECT_EQ(Stop(), 0);
  ClearLog();
  peer.StopListening();
  Make();
  RunAside();
  ASSERT_TRUE(WaitLogged("hub: the initialisation" + away + "50 ms"));  // the test stops it now
}

TEST_F(HubTest, RefusalsEndTheService) {
  AnswerQueries("INFO_QUERY", R"("QueryInfosRes":["ERROR:"])");
  const string silent =
      "hub: the initialisation failed, the Manager does not answer; tries again in 50 ms";
  const std::tuple<int, int, int, string> rows[] = {
      {-5, 0, 0, "the initialisation was refused (-5)"},
      {7, -1, 0, "the registration of opcode 0x0000a001 was refused (-1)"},
      {7, 0, -1, "the readiness of opcode 0x0000a001 was refused (-1)"},
      {-1, 0, 0, "the initialisation was refused (-1)"}};
  for (const auto& [init, auth, ready, what] : rows) {
    peer.AnswerInit(init);
    peer.AnswerAuth(auth);
    peer.AnswerReady(ready);
    Make();
    init == -1 ? FreezeClock() : void();  // nobody answers the query that follows
    EXPECT_EQ(service->Run(), 1);
    EXPECT_EQ(CountLogged("hub: " + what + "; the service ends"), 1U);
    EXPECT_EQ(CountLogged(silent), init == -1 ? 1U : 0U);
  }
}

TEST_F(HubTest, WithoutAnAnswerTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [this](bool is_stopped) {
    SetLogHook([](const string& line) { std::cerr << line << "\n"; });
    peer.SetRule("AUTH", [=](const string& /*request*/) {
      is_stopped ? service->Stop() : void();
      return std::nullopt;
    });
    options.answer_limit = std::chrono::seconds(is_stopped ? 60 : 1);
    options.drain = std::chrono::seconds(is_stopped ? 0 : 60);
    Make();
    service->Run();
  };
  EXPECT_EXIT(
      run(false), testing::ExitedWithCode(75),
      "hub: the Manager has not answered the registration of opcode 0x0000a001 for 1 s; the process ends with exit code 75");
  EXPECT_EXIT(
      run(true), testing::ExitedWithCode(0),
      "hub: the service stops, but the registration of opcode 0x0000a001 still waits; the process ends");
}

TEST_F(HubTest, AHeartbeatFindsAResetBeforeTheFirstCallback) {
  options.heartbeat = std::chrono::seconds(1);
  RunAside();
  ASSERT_TRUE(WaitLogged("hub: serves with service id 7, opcodes: 2"));
  HangUpWithReset();
  ASSERT_TRUE(WaitHeard("lost back "));
  EXPECT_EQ(CountLogged("hub: a heartbeat could not be sent; the service starts anew"), 1U);
}

TEST_F(HubTest, AfterALossWithRunningTasksTheServiceServesAgain) {
  const auto closes = [this] { peer.HangUp(); };
  const auto is_killed = [this] {  // the path is there, and nobody listens
    std::filesystem::rename(kSharedPath, "/dev/socket/aside");
    peer.StopListening();
    std::filesystem::rename("/dev/socket/aside", kSharedPath);
    close(peer.HandOver());
  };
  const auto is_never_back = [&] {
    freezes_clock = true;  // on the receive thread: 20 seconds pass at once
    is_killed();
  };
  // The loss, and what is logged before the Manager is let back.
  const std::pair<std::function<void()>, const char*> rows[] = {
      {closes, "hub: the Manager has closed the connection; the library tries to connect for 20 s"},
      {[this] { HangUpWithReset(); }, "hub: the connection was reset; the service starts anew"},
      {is_killed, "Failed to connect to ORVEX Manager (connection failed Connection refused)"},
      {is_never_back, "hub: the Manager is not back; the service tries on"}};
  const auto pair = [](uint32_t id) { return "/" + std::to_string(id) + "/0/1 "; };
  uint32_t session = 10;
  Start(session);
  for (const auto& [lose, logged] : rows) {
    SCOPED_TRACE(logged);
    OpenSession(session + 1, kOpcode, 1);
    SendHeldTask(session);
    Heard();
    ClearLog();
    lose();
    ASSERT_TRUE(WaitLogged(logged));
    freezes_clock = false;
    peer.Listen();
    ASSERT_TRUE(WaitHeard("end" + pair(session) + "end" + pair(session + 1) + "lost back "));
    let_go = 1;
    EXPECT_THAT(NextAnswer(), HasSubstr("\"name\":\"hold\""));
    session += 10;
    ExpectService(session);
    EXPECT_EQ(Heard(), "go/1 start" + pair(session) + "ready" + pair(session));
  }
  SendHeldTask(session);
  peer.AnswerInit(-5);
  peer.HangUp();
  ASSERT_TRUE(WaitLogged("hub: the initialisation was refused (-5); the service ends"));
  let_go = 1;
  EXPECT_EQ(result.get(), 1);
  EXPECT_EQ(Heard(), "hold/1 end" + pair(session) + "lost go/1 ");
}

}  // namespace
