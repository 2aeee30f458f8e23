// Every step of a service's life, and every way in which the Manager can go meanwhile.

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

// kGone: end of file, and nobody reads what the service sends. kStillReading: end of file, but the
// Manager reads on. kReset: closed with packets unread. kRefused: end of file, and nobody listens
// until the service has deinitialised.
enum Way { kGone, kStillReading, kReset, kRefused };
// Two kinds of each, which take turns over the moments.
constexpr const char* kKinds[] = {"Closed", "BackLater", "EmptyPacket", "HalfClosed",
                                  "Reset",  "Reset",     "Refused",     "Refused"};

// What the call of the moment has returned. It runs on a thread of its own and may never return.
constexpr int kNothing = -100;
constexpr int kUnderWay = -101;
std::atomic<int> result{kNothing};

std::atomic<bool> busy{false}, let_go{false};
std::atomic<int> answers{0};  // to the task of the moment

void Hold() {
  busy = true;
  Eventually([] { return let_go.load(); });
}

int RunTask(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  Hold();
  return 0;
}

// What the service calls at the moment.
constexpr auto kRegister = [] { return ServiceTest::Register(0x10, {1}); };
constexpr auto kReady = [] { return kRegister() + ServiceTest::Ready(0x10, RunTask); };
constexpr auto kAnswer = [] { return let_go = true, kNothing; };
constexpr auto kQuery = [] { return static_cast<int>(orvd_permission_query(9, {"p"}).size()); };
constexpr auto kDeinit = [] { return orvd_svc_deinit(kServiceId); };

// What the Manager has asked for, and what the service hears of the loss.
const std::string kTask = orvd::TaskMessage(9, 0x10, 1, 1);
const std::string kNotify = R"({"req_type":"permission_change"})";
const std::string kTold = "terminated 0x00000010::0\n";
const std::string kEnded = kTold + "end 0x00000010::1 session 8\nend 0x00000010::1 session 9\n";
const std::string kLeaves = "left ";  // nothing: it deinitialises

// kLostBefore: the Manager was lost and is back, and the service has deinitialised.
enum Stage { kBegun, kLostBefore, kInitialised, kInSessions };

struct Row {
  const char* name;
  Stage stage;
  std::string request;
  int (*call)();
  // The message that the Manager goes at; "": when the call's first packet is about to be sent.
  std::string heard;
  std::string told;
  // What the call returns, or that it waits without limit; whether the task is answered. For each
  // Way, or one for all.
  std::array<const char*, 4> outcome;
};

const Row kRows[] = {
    {"Connected", kBegun, "", orvd_svc_init, "", "", {"-1", "waits", "-1", "-1"}},
    {"InitSent", kBegun, "", orvd_svc_init, "INIT", "", {"waits"}},
    {"Initialised", kInitialised, "", nullptr, "", "", {""}},
    {"AuthSent", kInitialised, "", kRegister, "AUTH", "", {"waits"}},
    {"ReadySent", kInitialised, "", kReady, "REDY", kTold, {"waits"}},
    {"SessionsOpen", kInSessions, "", nullptr, "", kEnded, {""}},
    {"TaskRunning", kInSessions, kTask, nullptr, "", kEnded, {"answered", "answered", "", ""}},
    {"TaskAnswering", kInSessions, kTask, kAnswer, "", kEnded, {"", "answered", "", ""}},
    {"QueryWaiting", kInSessions, "", kQuery, "PERMISSION", kEnded, {"0"}},
    {"Notified", kInSessions, kNotify, nullptr, "", kEnded, {""}},
    {"Deinitialising", kInSessions, "", kDeinit, "", kLeaves, {"0"}},
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

  void LoseAtTheMoment() {
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
    if (row_.heard.empty()) {
      OnNextPacket([this](int fd) {
        Lose(fd);
        EXPECT_TRUE(Eventually([this] { return !Loss().empty(); }));
      });
    }
    peer.SetRule(row_.heard, nullptr);
    result = kUnderWay;
    std::thread([call = row_.call] { result = call(); }).detach();
    if (!row_.heard.empty()) {
      ASSERT_TRUE(peer.NextOf(row_.heard));
      Lose();
    }
  }

  // `fd`: of a packet that is about to be sent, which no other can overtake.
  void Lose(int fd = -1) {
    recorder.Clear();
    ClearLog();
    ASSERT_TRUE(peer.WaitConnected());
    if (is_deaf_) {  // the socket stays at its path, as behind a killed Manager
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
    const std::string of_call = now == kUnderWay ? "waits" : std::to_string(now);
    const std::string of_task = answers == 1 ? "answered" : "answered twice";
    return (now == kNothing ? "" : of_call) + (answers == 0 ? "" : of_task);
  }

  std::string Loss() const {
    const std::string log = LogText();
    std::string loss;
    for (const auto& [line, word] : {std::pair{"Communication with manager failed (", "lost "},
                                     {"in_size = -1, error 104:", "reset "},
                                     {"in_size = -1, error 9:", "left "},
                                     {"reconnected to manager, ", "connected "}}) {
      loss += log.find(line) != std::string::npos ? word : "";
    }
    return loss + recorder.events();
  }

  // End of file is told, and the return of the Manager too. A reset ends the receive thread alone.
  std::string ExpectedLoss() const {
    const std::string back = row_.told.empty() ? "" : "reconnected 0x00000010::0\n";
    return row_.told == kLeaves ? kLeaves
           : way_ == kReset     ? "reset "
           : way_ == kRefused   ? "lost " + row_.told
                                : "lost connected " + row_.told + back;
  }

  void Serve() {
    peer.AgreeToEverything(kServiceId);
    Init();
    // The first opcode may still wait for an answer, and the first session may have survived.
    const uint32_t opcode = row_.stage == kInSessions ? 0x10 : 0x20;
    const uint32_t session = row_.told == kLeaves || way_ == kReset ? 10 : 9;
    Offer(opcode, {1}, RunTask);
    OpenSession(session, opcode, 1);
    peer.Send(orvd::TaskMessage(session, opcode, 1, 2));
    EXPECT_TRUE(peer.NextOf("exec_task"));
  }

  const Row& row_ = kRows[std::get<0>(GetParam())];
  const Way way_ = static_cast<Way>(std::get<1>(GetParam()));
  const bool is_second_kind_ = std::get<0>(GetParam()) % 2 == 1;
  const bool is_deaf_ = way_ == kRefused || (way_ == kGone && is_second_kind_);  // for a while
  const std::string outcome_ = row_.outcome[row_.outcome[way_] != nullptr ? way_ : 0];
  const bool waits_ = outcome_ == "waits";
  const bool initialises_ = row_.call == orvd_svc_init;
  const long threads_ = Threads();
};

TEST_P(LossTest, IsToldAndTheServiceServesAgain) {
  LoseAtTheMoment();
  EXPECT_TRUE(
      !is_deaf_ || row_.told == kLeaves ||
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
  EXPECT_EQ(kDeinit(), initialises_ || row_.told == kLeaves ? -3 : 0);
  EXPECT_TRUE(initialises_ || WaitForThreads(threads_ + (waits_ ? 1 : 0)));
  EXPECT_EQ(Loss(), ExpectedLoss());
  peer.Listen();
  if (initialises_ && way_ == kReset) {  // the dead connection is used once more
    EXPECT_EQ(orvd_svc_init(), -1);
    EXPECT_TRUE(WaitForThreads(threads_));
  }
  Serve();
  EXPECT_EQ(Outcome(), outcome_);  // nothing has come late
}

std::string NameOf(const testing::TestParamInfo<std::tuple<size_t, int>>& info) {
  const auto [row, way] = info.param;
  return std::string(kRows[row].name) + kKinds[2 * static_cast<size_t>(way) + row % 2];
}
INSTANTIATE_TEST_SUITE_P(, LossTest, Combine(Range<size_t>(0, std::size(kRows)), Range(0, 4)),
                         NameOf);

}  // namespace
