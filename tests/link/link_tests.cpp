#include <android/log.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "link/disconnect.h"
#include "link/send.h"
#include "support/script_test.h"

namespace {

using orvd::ManagerPeer;
using testing::Contains, testing::ElementsAre, testing::FieldsAre, testing::HasSubstr, testing::Not;
using namespace std::string_literals;  // NOLINT(google-build-using-namespace)

constexpr int kRefused = -5;
// Build type, service, plix, markers, thread name; then the socket and the messages that it
// receives. The order matters: a build type other than eng and userdebug keeps the flags of the row
// before. A service whose INIT was refused sends DINT only when gDedicatedChannel is set.
constexpr const char* kPaths[][6] = {
    {"userdebugx", "vendor.radioWarden", "plix_foo", "1", "abcdefoo", "shared INIT EXIT"},
    {"userdebug", "vendor.radioWarden", "", "1", "x", "dedicated INIT mark DINT EXIT"},
    {"user", "", "", "", "abcdefoobar", "shared INIT mark DINT EXIT"},
    {"eng", "", "plix_foo", "", "abcde", "dedicated INIT DINT EXIT"},
    {"eng", "vendor.plix.bar", "plix_foo", "0", "abcdefoo", "dedicated INIT DINT EXIT"},
    {"eng", "vendor.radioWarden", "plix_foo", "1", "abcdebar", "shared INIT EXIT"},
    {"eng", "vendor.plix.bar", "foo", "1", "plix_bar", "dedicated INIT mark DINT EXIT"},
    {"eng", "vendor.radioWarden", "plix_", "1", "abcde", "shared INIT DINT EXIT"},
    {"eng", "vendor.radioWardenX", "", "0", "abcdevendor.", "dedicated INIT DINT EXIT"},
    {"userdebug", "", "", "1", "abcdef", "shared INIT EXIT"},
    {"userdebug", "vendor.plix.", "", "1", "abc", "shared INIT DINT EXIT"},
    {"eng", "", "plix_foobar", "true", "abcdefoo", "dedicated INIT mark DINT EXIT"},
};

using LinkScript = ScriptTest;

TEST_F(LinkScript, LogAtEachLevel) {
  Begin(4);
  SetDebugLevel(3);
  EXPECT_THAT((std::vector{orvd_svc_init(), orvd_svc_init(), orvd_svc_deinit(5), orvd_svc_deinit(7),
                           orvd_svc_deinit(7), orvd_svc_init()}),
              ElementsAre(7, 7, -2, 0, -3, 7));
  Expect(R"(
ORVEX service init| Already initialized; return existing service id 7|ORVEX service init| Already initialized; return existing service id 7
{"req_type":"DINT","Service_Id":7}|EXIT|gService_id is -1, svc_id is 7|ORVEX service init|{"req_type":"INIT"})");
  SetDebugLevel(0);
  EXPECT_THAT((std::vector{orvd_svc_deinit(7), orvd_svc_init(), orvd_svc_init()}),
              ElementsAre(0, 7, 7));
  SetDebugLevel(4);
  EXPECT_THAT((std::vector{orvd_svc_deinit(7), orvd_svc_init()}), ElementsAre(0, 7));
  Expect(R"(
{"req_type":"DINT","Service_Id":7}|EXIT|gService_id is -1, svc_id is 7|{"req_type":"INIT"}| Already initialized; return existing service id 7
{"req_type":"DINT","Service_Id":7}|EXIT|gService_id is -1, svc_id is 7|Manager connection established, gMgrSocket_fd|{"req_type":"INIT"}|ORVEX initialized; svc id 7)");
}

TEST_F(LinkScript, RefusedInitialisationCanBeRepeated) {
  Begin(4);
  EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
  Recorded();
  peer.SetRule("INIT", [](auto) { return R"({"req_type":"INIT"})"; });
  EXPECT_EQ(orvd_svc_init(), -1);
  EXPECT_TRUE(WaitForThreads(threads));
  for (const int id : {kServiceId, kRefused, 0}) {
    peer.AnswerInit(id);
    EXPECT_EQ(orvd_svc_init(), id);
    EXPECT_EQ(orvd_svc_deinit(static_cast<unsigned>(id)), 0);
  }
  Expect(R"(
ORVEX service init|Manager connection established, gMgrSocket_fd|{"req_type":"INIT"}|Failed to initialize with manager|ORVEX service init|{"req_type":"INIT"}|ORVEX initialized; svc id 7
{"req_type":"DINT","Service_Id":7}|EXIT|gService_id is -1, svc_id is 7|ORVEX service init|Manager connection established, gMgrSocket_fd|{"req_type":"INIT"}|Failed to initialize with manager
gService_id is -1, svc_id is -5|ORVEX service init|{"req_type":"INIT"}|ORVEX initialized; svc id 0|{"req_type":"DINT","Service_Id":0}|EXIT|gService_id is -1, svc_id is 0)");
}

TEST_F(LinkScript, LogOfALossAndAReconnection) {
  Begin(4);
  Prepare({Session("start", 6, {{"a001", {1}}})});
  peer.StopListening();
  peer.HangUpForWriting();
  EXPECT_TRUE(WaitLogged("> reconnected 0x0000a001::0"));
  EXPECT_THAT((std::vector{orvd_svc_init(), orvd_svc_deinit(7), orvd_svc_init()}),
              ElementsAre(7, 0, 7));
  Expect(R"(
EXIT|in inform_session_state|> terminated 0x0000a001::0|in inform_session_state|[session]> end 0x0000a001::1 session 6|Session 6 with 0x0000a001::1 terminate success|Ended session 6 with 1 service (0 failed)
Failed to connect to ORVEX Manager (connection failed No such file or directory)|pause 50000|Failed to connect to ORVEX Manager (connection failed No such file or directory)|pause 50000
Manager connection established, gMgrSocket_fd|reconnected to manager, gMgrSocket_fd, total time to reconnect 100|in inform_session_state|> reconnected 0x0000a001::0
ORVEX service init| Already initialized; return existing service id 7|gService_id is -1, svc_id is 7|ORVEX service init|{"req_type":"INIT"}|ORVEX initialized; svc id 7)");
}

TEST_F(LinkScript, Unreadable) {
  Begin(1);
  // The first event stops the receive thread's clock, so the pauses take no time.
  const std::string waits = "\nFailed to parse ORVEX manager request|pause 500000";
  Expect(R"({"req_type":"permission_change"})", R"(
[ready table]> permission_change permission 0 package null|[ready table]> permission_change permission 0 package null)");
  Expect(R"({"req_type":"long enough to leave traces"} rest)",
         "\nUnknown request type 'long enough to leave traces'");
  for (const std::string& message :
       {R"({"req_type":"cut)"s, R"([{"req_type":"in a list"}])"s, "{\"req_type\":\"a\0b\"}"s}) {
    Expect(message, waits);
  }
  Expect(R"({"req_type":"b\u0000c"})", "\nUnknown request type 'b'");
  Expect("{}", "\nUnknown request type '0'");
}

TEST_F(LinkScript, Notifications) {
  Begin(3);
  Expect(orvd::StateChangeMessage(3, "screen", "on", "p"), R"(
State change: state_change, session_id: 3, package: p, state: screen:on|[ready table]> state_change session 3 state screen:on package p|[ready table]> state_change session 3 state screen:on package p)");
  Expect(R"({"req_type":"system_setting_change","session_id":4294967295,"state":"","value":5})", R"(
State change: system_setting_change, session_id: -1, package: null, state: :5|[ready table]> setting_change session 4294967295 state :5 package null|[ready table]> setting_change session 4294967295 state :5 package null)");
  Expect(R"({"req_type":"state_change","state":"screen","package":"p"})", R"(
State change: state_change, session_id: 0, package: p, state: screen:null)");
  Expect(R"({"req_type":"state_change","value":"on"})", R"(
State change: state_change, session_id: 0, package: null, state: null:on)");
  Expect(R"({"req_type":"system_setting_change","state":"nullable","value":"on"})", R"(
State change: system_setting_change, session_id: 0, package: null, state: nullable:on)");
  Expect(R"({"req_type":"state_change","state":null,"value":null,"package":null})", R"(
State change: state_change, session_id: 0, package: , state: :|[ready table]> state_change state :|[ready table]> state_change state :)");
  Expect(
      R"({"req_type":"permission_change","sesson_id":"010x","status":"-3","permission":"null","package":"p"})",
      R"(
Req_type: permission_change Opcode: 0 ssid: 0 session_id: 10 permission: null package: p status: 1|[ready table]> permission_change session 10 permission null status 1 package p|[ready table]> permission_change session 10 permission null status 1 package p)");
  for (const char* members :
       {R"(,"session_id":"9","status":"0x1")", "", R"(,"sesson_id":"x","status":"x")"}) {
    Expect(R"({"req_type":"permission_change")" + std::string(members) + "}", R"(
Req_type: permission_change Opcode: 0 ssid: 0 session_id: 0 permission: 0 package: null status: 0|[ready table]> permission_change permission 0 package null|[ready table]> permission_change permission 0 package null)");
  }
}

struct LinkTest : ServiceTest {
  static std::string Received(ManagerPeer& used) {
    std::string kinds = used.WaitEndOfFile() ? "" : "still connected";
    while (const auto message = used.Next(orvd::Milliseconds(0))) {
      kinds += " " + orvd::KindOf(*message);
    }
    return kinds;
  }
};

TEST_F(LinkTest, PathDependsOnBuildTypeThreadNameAndProperties) {
  ManagerPeer dedicated(kDedicatedPath);
  dedicated.AnswerInit(kRefused);
  peer.AnswerInit(kRefused);
  for (const auto& row : kPaths) {
    android::base::SetProperty("ro.build.type", row[0]);
    android::base::SetProperty("vendor.orvex.one.service", row[1]);
    android::base::SetProperty("vendor.orvex.one.plix", row[2]);
    android::base::SetProperty("vendor.orvex.one.markers", row[3]);
    std::thread([&row] {
      pthread_setname_np(pthread_self(), row[4]);
      orvd_svc_init();
    }).join();
    orvd_log_marker("mark");
    EXPECT_EQ(orvd_svc_deinit(static_cast<unsigned>(kRefused)), 0);
    disconnect_from_manager();
    const bool is_shared = row[5][0] == 's';
    EXPECT_EQ((is_shared ? "shared" : "dedicated") + Received(is_shared ? peer : dedicated), row[5])
        << testing::PrintToString(row);
  }
  EXPECT_THAT(Log(), Contains(FieldsAre(ANDROID_LOG_INFO, "ORVEX_marker : mark : ")).Times(12));
  orvd_log_marker("lost");
  EXPECT_EQ(CountLogged("Message was not sent successfully ORVEX_marker"), 1U);
}

TEST_F(LinkTest, DeinitEndsConnectionAndThreadWhateverTheManagerDoes) {
  const auto hang_up = [this] { peer.HangUp(); };
  const auto flood = [this] {
    for (int i = 0; i < 20; ++i) {
      peer.Send(R"({"req_type":"permission_change"})");
    }
  };
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"DINT", [] {}},
      {"DINT", hang_up},
      {"DINT", flood},
      {"DINT", [this] { peer.StopReading(); }},
      {"EXIT", hang_up}};
  const long descriptors = CountEntries("/proc/self/fd");
  const long threads = Threads();
  for (size_t cycle = 1; cycle <= 1000; ++cycle) {
    const auto& [kind, act] = rows[cycle % 5];
    Init();
    Offer(0x10, {1});
    peer.SetRule(kind, [act = act](const std::string&) { return act(), std::nullopt; });
    ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
    ASSERT_TRUE(WaitForThreads(threads)) << cycle;
    peer.SetRule(kind, nullptr);
    ASSERT_EQ(peer.connections(), cycle);
  }
  EXPECT_THAT(Events(), Not(HasSubstr("ed 0x")));  // no loss was reported
  EXPECT_TRUE(Eventually([&] { return CountEntries("/proc/self/fd") == descriptors; }));
}

int RunForever(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  orvd_send_to_manager_raw("running");
  return pause();
}

// Ends the process while another thread waits. The name of a row is the message that shows the
// wait.
TEST_F(LinkTest, ExitDoesNotWaitForOtherThreads) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::pair<const char*, std::function<void()>> rows[] = {
      {"INIT", orvd_svc_init},
      {"PERMISSION", [] { orvd_permission_query(1, {}); }},
      {"REDY", [] { _orvd_svc_ready(kServiceId, 1, nullptr, nullptr, nullptr); }},
      {"AUTH",
       [] { _orvd_svc_register_auth(kServiceId, 1, orvd::Definition(1, {}).c_str(), "t"); }},
      {"running", [this] { peer.Send(orvd::TaskMessage(9, 0x10, 1, 1)); }}};
  const auto exit_while_waiting = [this](const auto& row) {
    if (row.first != "INIT"s) {
      Init();
      Offer(0x10, {1}, RunForever);
      OpenSession(9, 0x10, 1);
    }
    peer.SetRule(row.first, nullptr);
    std::thread(row.second).detach();
    EXPECT_TRUE(peer.NextOf(row.first));
    alarm(20);
    exit(HasFailure() ? 1 : 0);
  };
  for (const auto& row : rows) {
    EXPECT_EXIT(exit_while_waiting(row), testing::ExitedWithCode(0), "") << row.first;
  }
}

TEST_F(LinkTest, SendsWholeMessagesAndLogsTheirBeginning) {
  const std::string text(251, 'a');
  EXPECT_TRUE(orvd_send_to_manager_raw("x") == -1 && disconnect_from_manager() == -1);
  close(STDIN_FILENO);
  Init();
  EXPECT_TRUE(std::filesystem::is_socket("/proc/self/fd/0"));  // 0 is a valid descriptor
  EXPECT_EQ(orvd_send_to_manager_raw(text.c_str()), 0);
  EXPECT_EQ(peer.NextOf(text), text);
  EXPECT_EQ(CountLogged("client Sending message " + text.substr(1)), 1U);
  EXPECT_EQ(disconnect_from_manager(), 0);
}

TEST_F(LinkTest, ReceiveBufferGrowsAtTheFirstSession) {
  Init();
  const auto takes = [this](size_t size) {
    const std::string type(size - 15, 'x');
    EXPECT_TRUE(peer.Send(R"({"req_type":")" + type + "\"}"));
    Settle();
    return CountLogged("Unknown request type '" + type + "'") == 1;
  };
  EXPECT_TRUE(takes(5120));
  EXPECT_FALSE(takes(5121));
  peer.Send(orvd::SessionMessage("start_session", 9, 0xa001, {1}));
  EXPECT_TRUE(takes(100000));
  if (peer.Send(std::string(524289, ' '))) {  // fails when the system's socket buffers are smaller
    EXPECT_TRUE(takes(524288));
    EXPECT_FALSE(takes(524289));
  }
}

}  // namespace
