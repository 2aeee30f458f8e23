#include <unistd.h>

#include <filesystem>
#include <thread>

#include "link/connection.h"
#include "support/gated_log.h"
#include "support/service_fixture.h"

namespace {

using orvd::ManagerPeer;
using namespace std::string_literals;  // NOLINT(google-build-using-namespace)

constexpr int kRefused = -5;
// Build type, service, plix, markers, name of the thread; what then arrives where. In this order:
// other builds keep the flags of the row before. A refused service says goodbye (DINT) only as the
// dedicated client.
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

class LinkTest : public ServiceTest {
 protected:
  static std::string Heard(ManagerPeer& used) {
    std::string heard = used.WaitEndOfFile() ? "" : "still connected";
    while (const auto message = used.Next(orvd::Milliseconds(0))) {
      heard += " " + orvd::KindOf(*message);
    }
    return heard;
  }
  static long Count(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
  }
  bool ReceiveThreadEnds() const {
    return Eventually([this] { return Count("/proc/self/task") == threads_at_start_; });
  }
  void Handle(const std::string& message) {
    ClearLog();
    EXPECT_TRUE(peer.Send(message));
    Settle();
  }
  const long threads_at_start_ = Count("/proc/self/task");
};

TEST_F(LinkTest, PathFollowsBuildTypeThreadNameAndProperties) {
  ManagerPeer dedicated(kDedicatedPath);
  dedicated.AnswerInit(kRefused);
  peer.AnswerInit(kRefused);
  for (const auto& row : kPaths) {
    SetTestProperty("ro.build.type", row[0]);
    SetTestProperty("vendor.orvex.one.service", row[1]);
    SetTestProperty("vendor.orvex.one.plix", row[2]);
    SetTestProperty("vendor.orvex.one.markers", row[3]);
    std::thread([&row] {
      pthread_setname_np(pthread_self(), row[4]);
      orvd_svc_init();
    }).join();
    orvd_log_marker("mark");
    EXPECT_EQ(orvd_svc_deinit(static_cast<unsigned>(kRefused)), 0);
    disconnect_from_manager();
    const bool is_shared = row[5][0] == 's';
    EXPECT_EQ((is_shared ? "shared" : "dedicated") + Heard(is_shared ? peer : dedicated), row[5])
        << testing::PrintToString(row);
  }
}

TEST_F(LinkTest, WritesEachLineFromItsLevelOnAndEachMessageToTheLetter) {
  EXPECT_EQ(orvd_svc_deinit(kServiceId), -3);
  int level_before = 0;
  for (const int level : {4, 3, 4, 4, 1, 0}) {
    SCOPED_TRACE(level);
    ClearLog();
    SetDebugLevel(level);
    EXPECT_EQ(orvd_svc_init(), kServiceId);
    SetDebugLevel(4 - level);  // an initialised library does not read it again
    EXPECT_EQ(orvd_svc_init(), kServiceId);
    EXPECT_EQ(orvd_svc_deinit(5), -2);
    EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
    EXPECT_TRUE(ReceiveThreadEnds());
    EXPECT_EQ(StableLog(), OpenAt(level_before, "@4 ORVEX service init\n") +
                               OpenAt(level, R"(@4 Manager connection established, gMgrSocket
@0 client Sending message {"req_type":"INIT"}
@0 Client received!!!
@4 ORVEX initialized; svc id 7
@4 ORVEX service init
@0  Already initialized; return existing service id 7
@0 client Sending message {"req_type":"DINT","Service_Id":7}
@0 client Sending message EXIT
@0 gService_id is -1, svc_id is 7
)"));
    EXPECT_EQ(Heard(peer), " INIT DINT EXIT");
    level_before = level;
  }
}

TEST_F(LinkTest, RefusedServiceKeepsItsConnectionForTheNextAttempt) {
  peer.SetRule("INIT", [](const std::string&) { return R"({"req_type":"INIT"})"; });
  EXPECT_EQ(orvd_svc_init(), -1);
  EXPECT_TRUE(ReceiveThreadEnds());
  EXPECT_EQ(CountLogged("Failed to initialize with manager"), 1U);
  peer.AnswerInit(kServiceId);
  Init();
  EXPECT_EQ(peer.connections(), 1U);

  EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);  // that it once agreed is forgotten
  peer.AnswerInit(kRefused);
  EXPECT_EQ(orvd_svc_init(), kRefused);
  EXPECT_EQ(orvd_svc_deinit(static_cast<unsigned>(kRefused)), 0);
  peer.AnswerInit(kServiceId);
  Init();
  EXPECT_EQ(peer.connections(), 2U);
}

TEST_F(LinkTest, LeavesNothingBehindWhateverTheManagerDoes) {
  constexpr size_t kCycles = 1000;
  const orvd::Rule hang_up = [this](const std::string&) {
    peer.HangUp();
    return std::nullopt;
  };
  const orvd::Rule keep_sending = [this](const std::string&) {
    for (int i = 0; i < 20; ++i) {
      peer.Send(R"({"req_type":"permission_change"})");
    }
    return std::nullopt;
  };
  const long descriptors = Count("/proc/self/fd");
  for (size_t cycle = 1; cycle <= kCycles; ++cycle) {
    Init();
    Offer(0x10, {1});
    peer.SetRule("DINT", cycle % 5 == 1 ? hang_up : cycle % 5 == 4 ? keep_sending : nullptr);
    peer.SetRule("EXIT", cycle % 5 == 2 ? hang_up : nullptr);
    if (cycle % 5 == 3) {
      peer.StopReading();
    }
    ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
    ASSERT_TRUE(ReceiveThreadEnds()) << cycle;
  }
  EXPECT_THAT(recorder.events(), testing::Not(testing::HasSubstr("ed 0x")));  // nobody was lost
  EXPECT_EQ(peer.connections(), kCycles);
  EXPECT_TRUE(Eventually([&] { return Count("/proc/self/fd") == descriptors; }));
}

#if defined(__SANITIZE_THREAD__)
constexpr unsigned kPrompt = 10;  // seconds; the sanitizer itself sleeps for one at exit
#else
constexpr unsigned kPrompt = 1;
#endif

// Ends the process while another thread waits for the answer to a message of this kind.
[[noreturn]] void ExitWhileWaiting(ManagerPeer& peer, const char* kind, void (*call)()) {
  peer.SetRule(kind, nullptr);
  std::thread(call).detach();
  if (!peer.NextOf(kind)) {
    abort();
  }
  alarm(kPrompt);
  exit(0);
}

TEST_F(LinkTest, ExitIsPromptWhateverWaits) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(ExitWhileWaiting(peer, "INIT", [] { orvd_svc_init(); }), testing::ExitedWithCode(0),
              "");
  EXPECT_EXIT((Init(), ExitWhileWaiting(peer, "PERMISSION", [] { orvd_permission_query(1, {}); })),
              testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      (Init(), ExitWhileWaiting(peer, "REDY",
                                [] { _orvd_svc_ready(kServiceId, 1, nullptr, nullptr, nullptr); })),
      testing::ExitedWithCode(0), "");
  EXPECT_EXIT(
      (Init(), ExitWhileWaiting(
                   peer, "AUTH",
                   [] { _orvd_svc_register_auth(kServiceId, 1, ApiBlob(1, {}).c_str(), "t"); })),
      testing::ExitedWithCode(0), "");
}

TEST_F(LinkTest, SendsWholeMessagesAndLogsTheirBeginning) {
  const std::string text(251, 'a');
  EXPECT_EQ(orvd_send_to_manager_raw("x"), -1);
  Init();
  EXPECT_EQ(orvd_send_to_manager_raw(text.c_str()), 0);
  EXPECT_EQ(peer.NextOf(text), text);
  EXPECT_EQ(CountLogged("client Sending message " + text.substr(1)), 1U);
}

TEST_F(LinkTest, ReadsOneObjectFromEachPacketUpToItsFirstNul) {
  Init();
  const std::pair<std::string, std::string> packets[] = {
      {R"({"req_type":"long enough to leave traces"} rest)", "long enough to leave traces"},
      {R"({"req_type":"cut)", ""},
      {R"([{"req_type":"in a list"}])", ""},
      {"{\"req_type\":\"a\0b\"}"s, ""},
      {R"({"req_type":"b\u0000c"})", "b"},
      {"{}", "0"}};
  for (const auto& [packet, type] : packets) {
    SCOPED_TRACE(packet);
    Handle(packet);
    EXPECT_EQ(CountLogged("Failed to parse ORVEX manager request"), type.empty() ? 1U : 0U);
    EXPECT_EQ(CountLogged("Unknown request type '" + type + "'"), type.empty() ? 0U : 1U);
  }
}

TEST_F(LinkTest, FillsItsBufferAndGrowsItAtTheFirstSession) {
  Init();
  for (const size_t capacity : {5120U, 524288U}) {
    const std::string type(capacity - 15, 'x');
    const std::string fits = R"({"req_type":")" + type + "\"}";
    if (!peer.Send(" " + fits)) {
      GTEST_SKIP() << "this system's send buffers are too small for " << capacity;
    }
    Handle(fits + "cut");
    EXPECT_EQ(CountLogged("Unknown request type '" + type + "'"), 1U) << capacity;
    Handle(SessionMessage("start_session", 9, 0xa001, {1}));
  }
}

TEST_F(LinkTest, EndOfFileReconnectsOnceAndTellsTheLowestOpcode) {
  size_t connections = 0;
  for (const auto end :
       {&ManagerPeer::HangUp, &ManagerPeer::HangUpForWriting, &ManagerPeer::SendEmptyPacket}) {
    Init();
    Offer(0x20, {});
    Offer(0x10, {});
    recorder.Clear();
    (peer.*end)();
    EXPECT_TRUE(recorder.WaitFor("reconnected 0x00000010::0"));
    EXPECT_EQ(recorder.events(), "terminated 0x00000010::0\nreconnected 0x00000010::0\n");
    EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);  // says nothing on the new connection, and keeps it
    Init();
    EXPECT_EQ(peer.connections(), connections += 2);
    orvd_svc_deinit(kServiceId);
  }
}

TEST_F(LinkTest, ResetEndsTheThreadAndNothingElse) {
  Init();
  peer.StopReading();
  orvd_send_to_manager_raw("never read");
  ASSERT_TRUE(peer.HangUpWithReset());
  EXPECT_TRUE(ReceiveThreadEnds());
  EXPECT_THAT(LogText(), testing::EndsWith("error 104:(Connection reset by peer)\n"));
}

// Message and event, which is "" when the service is not told.
constexpr const char* kNotifications[][2] = {
    {R"(state_change","session_id":3,"state":"screen","value":"on","package":"p"})",
     "state_change session 3 state screen:on package p\n"},
    {R"(system_setting_change","session_id":4294967295,"state":"","value":5})",
     "setting_change session 4294967295 state :5 package null\n"},
    {R"(state_change","state":"screen","package":"p"})", ""},
    {R"(system_setting_change","state":"nullable","value":"on"})", ""},
    {R"(state_change","state":null,"value":null,"package":null})", "state_change state :\n"},
    {R"(permission_change","sesson_id":"9","status":"-3","permission":"null","package":"p"})",
     "permission_change session 9 permission null status 1 package p\n"},
    {R"(permission_change","session_id":"9","status":"0x1"})",
     "permission_change permission 0 package null\n"},
};

TEST_F(LinkTest, NotificationsReachEveryReadyOpcode) {
  Init();
  Offer(0x20, {});
  Offer(0x10, {});
  for (const auto& [message, event] : kNotifications) {
    recorder.Clear();
    Handle(R"({"req_type":")"s + message);
    EXPECT_EQ(recorder.events(), std::string(event) + event) << message;
  }
}

}  // namespace
