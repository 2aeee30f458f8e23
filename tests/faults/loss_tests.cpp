// The connection is lost in every way, while a task runs and calls of the service wait.

#include <sys/socket.h>

#include <filesystem>
#include <thread>

#include "link/send.h"
#include "support/faults.h"
#include "support/frozen_clock.h"
#include "support/service_fixture.h"

namespace {

// The results of calls that run on their own threads, because they may never return.
constexpr int kNone = -100;
std::atomic<int> query_result{kNone}, register_result{kNone}, init_result{kNone};
std::atomic<bool> task_runs{false}, let_go{false};

int RunTask(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  task_runs = true;
  Eventually([] { return let_go.load(); });
  return 0;
}

struct Way {
  const char* name;
  void (*lose)(orvd::ManagerPeer&, int fd);  // the service is about to send on `fd`; -1: it is not
  std::string log;                           // words of Loss()
  // When the Manager listens: at once, after attempts to reconnect, or after the service has
  // deinitialised.
  enum { kAtOnce, kLater, kAfterDeinit } listens;
  friend std::ostream& operator<<(std::ostream& out, const Way& way) { return out << way.name; }
};

// A reset needs an unread packet.
void Reset(orvd::ManagerPeer& peer, int fd) {
  peer.StopReading();
  ASSERT_TRUE(fd < 0 ? orvd_send_to_manager_raw("unread") == 0 : send(fd, "unread", 6, 0) == 6);
  ASSERT_TRUE(peer.HangUpWithReset());
}
void HangUp(orvd::ManagerPeer& peer, int /*fd*/) {
  peer.HangUp();
}

const Way kWays[] = {{"Closed", HangUp, "lost connected", Way::kAtOnce},
                     {"BackLater", HangUp, "lost refused connected", Way::kLater},
                     {"Refused", HangUp, "lost refused", Way::kAfterDeinit},
                     {"HalfClosed", [](auto& peer, int) { peer.HangUpForWriting(); },
                      "lost connected", Way::kAtOnce},
                     {"EmptyPacket", [](auto& peer, int) { peer.SendEmptyPacket(); },
                      "lost connected", Way::kAtOnce},
                     {"Reset", Reset, "reset", Way::kAtOnce}};

struct LossTest : ServiceTest, testing::WithParamInterface<Way> {
  // What the log says about the loss, in the order of the list below, and the events.
  static std::string Loss() {
    const std::string log = LogText();
    std::string loss;
    for (const auto& [line, word] :
         {std::pair("Communication with manager failed (", "lost"),
          {"in_size = -1, error 104:", "reset"},
          {"in_size = -1, error 9:", "disconnected"},
          {"Failed to connect to ORVEX Manager (connection failed Connection refused)", "refused"},
          {"reconnected to manager, ", "connected"}}) {
      const bool is_logged = log.find(line) != std::string::npos;
      loss += is_logged ? (loss.empty() ? "" : " ") + std::string(word) : "";
    }
    return loss + "\n" + Events();
  }

  // Begins a call on a thread of its own, and waits for its message. The Manager does not answer.
  template <typename Call>
  void BeginCall(const char* kind, std::atomic<int>& result, Call call) {
    peer.SetRule(kind, nullptr);
    std::thread([&result, call] { result = static_cast<int>(call()); }).detach();
    ASSERT_TRUE(peer.NextOf(kind));
  }

  void Lose(int fd = -1) {
    ClearLog();
    if (way.listens != Way::kAtOnce) {  // the socket file stays, as after a Manager was killed
      std::filesystem::rename(kSharedPath, "/dev/socket/aside");
      peer.StopListening();
      std::filesystem::rename("/dev/socket/aside", kSharedPath);
    }
    way.lose(peer, fd);
  }
  void LoseAndReturn() {
    Lose();
    if (way.listens == Way::kLater) {
      EXPECT_TRUE(Eventually([] { return Loss().find("refused") != std::string::npos; }));
      peer.Listen();
    }
  }

  const Way& way = GetParam();
};

TEST_P(LossTest, IsReportedAndTheServiceWorksAgain) {
  SetDebugLevel(1);
  const long threads = Threads();
  Init();
  Offer(0x10, {1}, RunTask);
  peer.Send(orvd::SessionMessage("start_session", 8, 0x10, {1}));
  OpenSession(9, 0x10, 1);
  peer.Send(orvd::TaskMessage(9, 0x10, 1, 1));
  ASSERT_TRUE(Eventually([] { return task_runs.load(); }));
  BeginCall("PERMISSION", query_result, [] {
    FreezeClock([](auto /*length*/) { return Eventually([] { return let_go.load(); }); });
    return orvd_permission_query(9, {"p"}).size();
  });
  BeginCall("AUTH", register_result, [] { return Register(0x20, {1}); });
  LoseAndReturn();
  const bool is_reset = way.log == "reset";  // only ends the receive thread
  const bool is_back = way.log.find("connected") != std::string::npos;
  const std::string ended =
      "terminated 0x00000010::0\nend 0x00000010::1 session 8\nend 0x00000010::1 session 9\n";
  const std::string loss =
      way.log + "\n" + (is_reset ? "" : ended) + (is_back ? "reconnected 0x00000010::0\n" : "");
  EXPECT_TRUE(Eventually([&] { return Loss() == loss; })) << Loss();
  let_go = true;
  EXPECT_TRUE(!is_back || peer.NextOf("exec_task"));
  EXPECT_TRUE(Eventually([] { return query_result == 0; }));
  EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
  EXPECT_TRUE(WaitForThreads(threads + 1));  // the registration waits without limit
  EXPECT_EQ(Loss(), loss);

  peer.Listen();
  peer.AgreeToEverything(kServiceId);
  Init();
  const uint32_t session = is_reset ? 10 : 9;
  Offer(0x10, {1}, RunTask);
  if (is_reset) {  // the old sessions still exist
    peer.Send(orvd::SessionMessage("start_session", 9, 0x10, {1}));
    EXPECT_THAT(peer.NextOf("start_session").value_or("lost"), testing::HasSubstr("Failed"));
  }
  OpenSession(session, 0x10, 1);
  peer.Send(orvd::TaskMessage(session, 0x10, 1, 2));
  EXPECT_THAT(peer.NextOf("exec_task").value_or("lost"), testing::HasSubstr("\"transac_id\":2,"));
  EXPECT_EQ(register_result, kNone);
}

TEST_P(LossTest, InitialisationWaitsWithoutLimitAndMakesNoEvent) {
  SetDebugLevel(1);
  const long threads = Threads();
  BeginCall("INIT", init_result, orvd_svc_init);
  LoseAndReturn();
  EXPECT_TRUE(Eventually([this] { return Loss() == way.log + "\n"; })) << Loss();
  if (way.listens == Way::kAfterDeinit) {
    // A second call begins a new generation, so the first call's receive thread ends.
    EXPECT_EQ(orvd_svc_init(), -1);
    EXPECT_TRUE(WaitForThreads(threads + 1));
  }
  EXPECT_EQ(orvd_svc_deinit(kServiceId), -3);
  EXPECT_EQ(init_result, kNone);
}

TEST_P(LossTest, IsNotReportedWhileTheServiceDeinitialises) {
  SetDebugLevel(1);
  Init();
  Offer(0x10, {1});
  OpenSession(9, 0x10, 1);
  OnNextPacket([this](int fd) {
    Lose(fd);
    EXPECT_TRUE(Eventually([] { return Loss() == "disconnected\n"; })) << Loss();
  });
  EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
  EXPECT_EQ(Loss(), "disconnected\n");
}

INSTANTIATE_TEST_SUITE_P(, LossTest, testing::ValuesIn(kWays),
                         [](const auto& row) { return row.param.name; });

}  // namespace
