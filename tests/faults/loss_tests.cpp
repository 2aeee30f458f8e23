// The connection is lost at every step of a service, in every way. A row of kRows is a step; Way is
// how the connection is lost.

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "link/send.h"
#include "support/faults.h"
#include "support/service_fixture.h"

namespace {

using testing::Combine, testing::Range;

// kGone: end of file; the Manager reads no more messages. kStillReading: end of file, but the
// Manager still reads. kReset: the Manager closes the connection with unread packets. kRefused: end
// of file, and connections are refused until the service has deinitialised.
enum Way { kGone, kStillReading, kReset, kRefused };
// Two kinds of each way. Rows with an odd index use the second kind.
constexpr const char* kKinds[] = {"Closed", "BackLater", "EmptyPacket", "HalfClosed",
                                  "Reset",  "Reset",     "Refused",     "Refused"};

// The result of the row's call. The call runs on its own thread and may never return.
constexpr int kNoCall = -100;
constexpr int kNoResultYet = -101;
std::atomic<int> result{kNoCall};

std::atomic<bool> busy{false}, let_go{false};
std::atomic<int> answers{0};  // to the row's task

void Hold() {
  busy = true;
  Eventually([] { return let_go.load(); });
}

int RunTask(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  Hold();
  return 0;
}

// The calls of the service.
constexpr auto kRegister = [] { return ServiceTest::Register(0x10, {1}); };
constexpr auto kReady = [] { return kRegister() + ServiceTest::Ready(0x10, RunTask); };
constexpr auto kAnswer = [] { return let_go = true, kNoCall; };
constexpr auto kQuery = [] { return static_cast<int>(orvd_permission_query(9, {"p"}).size()); };
constexpr auto kDeinit = [] { return orvd_svc_deinit(kServiceId); };

// The messages of the Manager, and the events that the callback receives after the loss.
const std::string kTask = orvd::TaskMessage(9, 0x10, 1, 1);
const std::string kNotify = R"({"req_type":"permission_change"})";
const std::string kLost = "terminated 0x00000010::0\n";
const std::string kEnded = kLost + "end 0x00000010::1 session 8\nend 0x00000010::1 session 9\n";
const std::string kDisconnects = "disconnected ";  // no event: the service deinitialises

// kLostBefore: the connection was lost and restored, and the service has deinitialised.
enum Stage { kBegun, kLostBefore, kInitialised, kInSessions };

struct Row {
  const char* name;
  Stage stage;
  std::string request;
  int (*call)();
  // The connection is lost when the Manager receives this message; "": just before the call sends
  // its first packet.
  std::string lost_at;
  std::string events;
  // The result of the call, or "waits" when it does not return; whether the task is answered. One
  // entry for each Way, or one for all.
  std::array<const char*, 4> outcome;
};

const Row kRows[] = {
    {"Connected", kBegun, "", orvd_svc_init, "", "", {"-1", "waits", "-1", "-1"}},
    {"InitSent", kBegun, "", orvd_svc_init, "INIT", "", {"waits"}},
    {"Initialised", kInitialised, "", nullptr, "", "", {""}},
    {"AuthSent", kInitialised, "", kRegister, "AUTH", "", {"waits"}},
    {"ReadySent", kInitialised, "", kReady, "REDY", kLost, {"waits"}},
    {"SessionsOpen", kInSessions, "", nullptr, "", kEnded, {""}},
    {"TaskRunning", kInSessions, kTask, nullptr, "", kEnded, {"answered", "answered", "", ""}},
    {"TaskAnswering", kInSessions, kTask, kAnswer, "", kEnded, {"", "answered", "", ""}},
    {"QueryWaiting", kInSessions, "", kQuery, "PERMISSION", kEnded, {"0"}},
    {"Notified", kInSessions, kNotify, nullptr, "", kEnded, {""}},
    {"Deinitialising", kInSessions, "", kDeinit, "", kDisconnects, {"0"}},
    {"LostAgain", kLostBefore, "", orvd_svc_init, "", "", {"-1", "waits", "-1", "-1"}},
};

class LossTest : public ServiceTest, public testing::WithParamInterface<std::tuple<size_t, int>> {
 protected:
  LossTest() {
    SetDebugLevel(1);
    peer.SetRule("exec_task", [](const std::string& answer) {
      answers += answer.find("\"transac_id\":1,") != std::string::npos ? 1 : 0;
      return std::nullopt;
    });
    recorder.SetHook(
        [](const orvd_req_t& req) { req.type == ORVD_PERMISSION_CHANGE ? Hold() : void(); });
  }

  void LoseAtTheStep() {
    if (row_.stage != kBegun) {
      Init();
    }
    if (row_.stage == kLostBefore) {
      Offer(0x10, {1});
      peer.HangUp();
      ASSERT_TRUE(recorder.WaitFor("reconnected 0x00000010::0") && WaitForThreads(threads_));
      ASSERT_EQ(kDeinit(), 0);
    }
    if (row_.stage == kInSessions) {
      Offer(0x10, {1}, RunTask);
      peer.Send(orvd::SessionMessage("start_session", 8, 0x10, {1}));
      OpenSession(9, 0x10, 1);
    }
    if (!row_.request.empty()) {
      peer.Send(row_.request);
      ASSERT_TRUE(Eventually([] { return busy.load(); }));
    }
    if (row_.call == nullptr) {
      return Lose();
    }
    if (row_.lost_at.empty()) {
      OnNextPacket([this](int fd) {
        Lose(fd);
        EXPECT_TRUE(Eventually([this] { return !Loss().empty(); }));
      });
    }
    peer.SetRule(row_.lost_at, nullptr);
    result = kNoResultYet;
    std::thread([call = row_.call] { result = call(); }).detach();
    if (!row_.lost_at.empty()) {
      ASSERT_TRUE(peer.NextOf(row_.lost_at));
      Lose();
    }
  }

  // `fd` is the descriptor of a packet that is about to be sent. -1: no packet.
  void Lose(int fd = -1) {
    recorder.Clear();
    ClearLog();
    ASSERT_TRUE(peer.WaitConnected());
    if (does_not_listen_) {  // the socket file stays, as after a Manager was killed
      std::filesystem::rename(kSharedPath, "/dev/socket/aside");
      peer.StopListening();
      std::filesystem::rename("/dev/socket/aside", kSharedPath);
    }
    if (way_ == kReset) {
      peer.StopReading();
      ASSERT_TRUE(fd < 0 ? orvd_send_to_manager_raw("unread") == 0 : send(fd, "unread", 6, 0) == 6);
      ASSERT_TRUE(peer.HangUpWithReset());
    } else if (way_ == kStillReading) {
      is_second_kind_ ? peer.HangUpForWriting() : peer.SendEmptyPacket();
    } else {
      peer.HangUp();
    }
    let_go = let_go || row_.request == kNotify;
  }

  static std::string Outcome() {
    const int now = result;
    const std::string of_call = now == kNoResultYet ? "waits" : std::to_string(now);
    const std::string of_task = answers == 1 ? "answered" : "answered twice";
    return (now == kNoCall ? "" : of_call) + (answers == 0 ? "" : of_task);
  }

  std::string Loss() const {
    const std::string log = LogText();
    std::string loss;
    for (const auto& [line, word] : {std::pair{"Communication with manager failed (", "lost "},
                                     {"in_size = -1, error 104:", "reset "},
                                     {"in_size = -1, error 9:", "disconnected "},
                                     {"reconnected to manager, ", "connected "}}) {
      loss += log.find(line) != std::string::npos ? word : "";
    }
    return loss + recorder.events();
  }

  // The callback is called at the end of file and after the reconnection. A reset only ends the
  // receive thread.
  std::string ExpectedLoss() const {
    const std::string back = row_.events.empty() ? "" : "reconnected 0x00000010::0\n";
    return row_.events == kDisconnects ? kDisconnects
           : way_ == kReset            ? "reset "
           : way_ == kRefused          ? "lost " + row_.events
                                       : "lost connected " + row_.events + back;
  }

  void ServeASession() {
    peer.AgreeToEverything(kServiceId);
    Init();
    // A call for the first opcode may still wait, and the first session may still exist.
    const uint32_t opcode = row_.stage == kInSessions ? 0x10 : 0x20;
    const uint32_t session = row_.events == kDisconnects || way_ == kReset ? 10 : 9;
    Offer(opcode, {1}, RunTask);
    OpenSession(session, opcode, 1);
    peer.Send(orvd::TaskMessage(session, opcode, 1, 2));
    EXPECT_TRUE(peer.NextOf("exec_task"));
  }

  const Row& row_ = kRows[std::get<0>(GetParam())];
  const Way way_ = static_cast<Way>(std::get<1>(GetParam()));
  const bool is_second_kind_ = std::get<0>(GetParam()) % 2 == 1;
  const bool does_not_listen_ = way_ == kRefused || (way_ == kGone && is_second_kind_);
  const std::string outcome_ = row_.outcome[row_.outcome[way_] != nullptr ? way_ : 0];
  const bool waits_ = outcome_ == "waits";
  const bool initialises_ = row_.call == orvd_svc_init;
  const long threads_ = Threads();
};

TEST_P(LossTest, IsReportedAndTheServiceWorksAgain) {
  LoseAtTheStep();
  EXPECT_TRUE(
      !does_not_listen_ || row_.events == kDisconnects ||
      WaitLogged("Failed to connect to ORVEX Manager (connection failed Connection refused)"));
  if (way_ == kGone) {
    peer.Listen();
  }
  EXPECT_TRUE(Eventually([this] { return Loss() == ExpectedLoss(); })) << Loss();
  let_go = true;
  EXPECT_TRUE(Eventually([this] { return Outcome() == outcome_; })) << Outcome();
  if (initialises_ && waits_) {
    return;
  }
  EXPECT_EQ(kDeinit(), initialises_ || row_.events == kDisconnects ? -3 : 0);
  EXPECT_TRUE(initialises_ || WaitForThreads(threads_ + (waits_ ? 1 : 0)));
  EXPECT_EQ(Loss(), ExpectedLoss());
  peer.Listen();
  if (initialises_ && way_ == kReset) {  // this call still uses the lost connection
    EXPECT_EQ(orvd_svc_init(), -1);
    EXPECT_TRUE(WaitForThreads(threads_));
  }
  ServeASession();
  EXPECT_EQ(Outcome(), outcome_);  // unchanged
}

std::string NameOf(const testing::TestParamInfo<std::tuple<size_t, int>>& info) {
  const auto [row, way] = info.param;
  return std::string(kRows[row].name) + kKinds[2 * static_cast<size_t>(way) + row % 2];
}
INSTANTIATE_TEST_SUITE_P(, LossTest, Combine(Range<size_t>(0, std::size(kRows)), Range(0, 4)),
                         NameOf);

}  // namespace
