// Every step of a service's life, and every way in which the Manager can go meanwhile.

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <future>
#include <sstream>
#include <thread>

#include "link/connection.h"
#include "support/faults.h"
#include "support/service_fixture.h"

namespace {

enum Moment {
  kConnected,  // INIT is about to be sent
  kInitSent,
  kInitialised,
  kAuthSent,
  kReadySent,
  kSessionStarted,
  kSessionReady,
  kTaskRunning,
  kTaskAnswering,  // the answer is about to be sent
  kQueryWaiting,
  kNotified,      // the callback runs
  kReconnecting,  // the Manager is back, the service has not initialised again, and it goes once more
  kDeinitialising,  // DINT is about to be sent
};

enum Kind {
  kClosed,
  kReset,       // closed with packets unread
  kEmpty,       // a packet of no bytes
  kHalfClosed,  // shut down for sending; it still reads
  kKilled,      // SIGKILL; another Manager takes its place
  kRefused,     // the socket is there and nobody listens, until the service has deinitialised
  kBackLater,   // away for 100 ms
};

// What each moment, in the order of Moment, and each kind come to, in letters of this order:
//   T terminated, E end, R reconnected   the callbacks of the one ready opcode
//   L closed, X ECONNRESET, 9 our doing  how the receive thread logs the end of the connection
//   B                                    it logs that it has reconnected
//   A answered, U unanswered             the task begun before
//   W waits on, N no results, F -1, O 0  the call under way
//   S serves, D later, - waits for ever  tasks, once the service has initialised again; D: not at the first attempt
struct Row {
  const char* name;
  const char* outcome[kBackLater + 1];
};

// clang-format off
constexpr Row kRows[] = {
    //                      closed    reset     empty     half      killed    refused   later
    {"Connected",          {"LBFS"  , "XFD"   , "LBW-"  , "LBW-"  , "LBFS"  , "LFS"   , "LBFS"}},
    {"InitSent",           {"LBW-"  , "XW-"   , "LBW-"  , "LBW-"  , "LBW-"  , "LW-"   , "LBW-"}},
    {"Initialised",        {"LBS"   , "XS"    , "LBS"   , "LBS"   , "LBS"   , "LS"    , "LBS"}},
    {"AuthSent",           {"LBWS"  , "XWS"   , "LBWS"  , "LBWS"  , "LBWS"  , "LWS"   , "LBWS"}},
    {"ReadySent",          {"TRLBWS", "XWS"   , "TRLBWS", "TRLBWS", "TRLBWS", "TLWS"  , "TRLBWS"}},
    {"SessionStarted",     {"TERLBS", "XS"    , "TERLBS", "TERLBS", "TERLBS", "TELS"  , "TERLBS"}},
    {"SessionReady",       {"TERLBS", "XS"    , "TERLBS", "TERLBS", "TERLBS", "TELS"  , "TERLBS"}},
    {"TaskRunning",        {"TERLBAS", "XUS"   , "TERLBAS", "TERLBAS", "TERLBAS", "TELUS" , "TERLBAS"}},
    {"TaskAnswering",      {"TERLBUS", "XUS"   , "TERLBAS", "TERLBAS", "TERLBUS", "TELUS" , "TERLBUS"}},
    {"QueryWaiting",       {"TERLBNS", "XNS"   , "TERLBNS", "TERLBNS", "TERLBNS", "TELNS" , "TERLBNS"}},
    {"Notified",           {"TERLBS", "XS"    , "TERLBS", "TERLBS", "TERLBS", "TELS"  , "TERLBS"}},
    {"Reconnecting",       {"TERLBD", "TERLBD", "TERLB-", "TERLB-", "TERLBD", "TERLBD", "TERLBD"}},
    {"Deinitialising",     {"9OS"   , "9OS"   , "9OS"   , "9OS"   , "9OS"   , "9OS"   , "9OS"}},
};
// clang-format on

constexpr const char* kKindNames[] = {"Closed", "Reset",   "EmptyPacket", "HalfClosed",
                                      "Killed", "Refused", "BackLater"};
constexpr uint32_t kSession = 9;
constexpr uint32_t kOpcode = 0x10;

std::string Task(uint32_t session, uint32_t opcode, int transac_id) {
  std::ostringstream text;
  text << R"({"req_type":"exec_task","opcode":")" << std::hex << opcode << std::dec
       << R"(","subsys_id":1,"session_id":)" << session << R"(,"transac_id":)" << transac_id << "}";
  return text.str();
}

// A Manager that leads the service to the moment, and there says nothing more.
void LeadTo(Moment moment, orvd::ManagerPeer& peer) {
  const auto silent_at = [&](Moment here, const char* req_type) {
    if (moment == here) {
      peer.SetRule(req_type, nullptr);
    }
  };
  peer.AgreeToEverything(kServiceId);
  silent_at(kInitSent, "INIT");
  silent_at(kAuthSent, "AUTH");
  if (moment > kReadySent) {
    peer.SetRule("REDY", [&peer](const std::string&) {
      peer.Send(R"({"req_type":"REDY","opcode":"16","result":0})");
      return SessionMessage("start_session", kSession, kOpcode, {1});
    });
  }
  silent_at(kReadySent, "REDY");
  if (moment > kSessionStarted) {
    peer.SetRule("start_session",
                 [&peer, moment](const std::string&) -> std::optional<std::string> {
                   peer.Send(SessionMessage("ready_session", kSession, kOpcode, {1}));
                   if (moment == kTaskRunning || moment == kTaskAnswering) {
                     return Task(kSession, kOpcode, 1);
                   }
                   return moment == kNotified
                              ? std::optional<std::string>(R"({"req_type":"permission_change"})")
                              : std::nullopt;
                 });
  }
}

// A Manager in a process of its own, made while this one has a single thread.
class ForkedManager {
 public:
  ForkedManager(bool wanted, Moment moment) {
    if (!wanted || pipe(go_) != 0 || pipe(heard_) != 0) {
      return;
    }
    pid_ = fork();
    if (pid_ == 0) {
      Run(moment);
    }
  }
  ~ForkedManager() { Kill(); }
  ForkedManager(const ForkedManager&) = delete;
  ForkedManager& operator=(const ForkedManager&) = delete;

  bool Start() const { return write(go_[1], "", 1) == 1 && Next() == "listening"; }
  // Waits until the Manager has read a message of this kind.
  void WaitHeard(const std::string& kind) const {
    for (std::string next = Next(); next != kind; next = Next()) {
      ASSERT_NE(next, "") << "the Manager ended before " << kind;
    }
  }
  void Kill() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
      pid_ = 0;
    }
  }

 private:
  [[noreturn]] void Run(Moment moment) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    char byte = 0;
    if (read(go_[0], &byte, 1) != 1) {
      _exit(1);
    }
    orvd::ManagerPeer manager(kSharedPath);
    manager.SetObserver([this](const orvd::TranscriptEntry& entry) {
      if (entry.direction == orvd::Direction::kFromService) {
        Tell(orvd::KindOf(entry.text));
      } else if (entry.direction == orvd::Direction::kConnected) {
        Tell("connected");
      }
    });
    LeadTo(moment, manager);
    Tell("listening");
    while (true) {
      pause();
    }
  }
  void Tell(const std::string& kind) const {
    const std::string line = kind + "\n";
    EXPECT_EQ(write(heard_[1], line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }
  std::string Next() const {
    std::string line;
    for (char c = 0; read(heard_[0], &c, 1) == 1 && c != '\n';) {
      line += c;
    }
    return line;
  }

  int go_[2]{};
  int heard_[2]{};
  pid_t pid_ = 0;
};

// A socket that refuses connections.
class DeafSocket {
 public:
  DeafSocket() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(kSharedPath).copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  ~DeafSocket() { close(fd_); }
  DeafSocket(const DeafSocket&) = delete;
  DeafSocket& operator=(const DeafSocket&) = delete;

 private:
  const int fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
};

struct Cell {
  Moment moment;
  Kind kind;

  std::string name() const { return kRows[moment].name + std::string(kKindNames[kind]); }
  std::string outcome() const { return kRows[moment].outcome[kind]; }
  friend std::ostream& operator<<(std::ostream& out, const Cell& cell) {
    return out << cell.name();
  }
};

std::vector<Cell> AllCells() {
  std::vector<Cell> cells;
  for (int moment = kConnected; moment <= kDeinitialising; ++moment) {
    for (int kind = kClosed; kind <= kBackLater; ++kind) {
      cells.push_back({static_cast<Moment>(moment), static_cast<Kind>(kind)});
    }
  }
  return cells;
}

constexpr const char* kLost = "Communication with manager failed (";
constexpr const char* kExits = "recv_msg_from_mgr: recv failed, exit thread.. in_size = -1, error ";
constexpr const char* kBack = "reconnected to manager, gMgrSocket_fd is ";
// Long enough for what should not happen to happen.
constexpr orvd::Milliseconds kShort{300};

std::atomic<bool> let_go{false};
std::atomic<int> running{0};

int TaskFunction(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
  ++running;
  Eventually([] { return let_go.load(); });
  call->result = "\"done\":1";
  return 0;
}

class LossTest : public testing::WithParamInterface<Cell>,
                 private ForkedManager,
                 public ServiceTest {
 protected:
  LossTest() : ForkedManager(GetParam().kind == kKilled, GetParam().moment) {
    SetDebugLevel(4);
    if (kind_ == kKilled && moment_ != kReconnecting) {
      peer.StopListening();
      EXPECT_TRUE(Start());
    } else {
      LeadTo(moment_, peer);
    }
    base_threads_ = Threads();
  }

  void WaitHeardByManager(const std::string& kind) {
    if (kind_ == kKilled && moment_ != kReconnecting) {
      WaitHeard(kind);
    } else {
      ASSERT_TRUE(peer.NextOf(kind));
    }
  }

  static long Threads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  }

  bool ReceiveThreadEnds() const {
    const long under_way = begun_ && *result_ == kUnderWay ? 1 : 0;
    return Eventually([&] { return Threads() == base_threads_ + under_way; });
  }

  // The call under way, on a thread of its own: it may never return.
  void Begin(std::function<int()> call) {
    begun_ = true;
    std::thread([call = std::move(call), result = result_] { *result = call(); }).detach();
  }
  void InitialiseAndOffer() {
    ASSERT_EQ(orvd_svc_init(), kServiceId);
    if (moment_ <= kInitialised || moment_ == kDeinitialising) {
      return;
    }
    const auto ready = [this] {
      return _orvd_svc_ready(kServiceId, kOpcode, Recorder::Callback, &recorder, TaskFunction);
    };
    const auto auth = [] {
      return _orvd_svc_register_auth(kServiceId, kOpcode, ApiBlob(kOpcode, {1}).c_str(), "t");
    };
    if (moment_ == kAuthSent) {
      Begin(auth);
      return WaitHeardByManager("AUTH");
    }
    ASSERT_EQ(auth(), 0);
    if (moment_ == kReadySent) {
      Begin(ready);
      return WaitHeardByManager("REDY");
    }
    ASSERT_EQ(ready(), 0);
    WaitHeardByManager("start_session");
  }

  // Loses the Manager when the next packet is about to be sent. The packet then meets what is left.
  void LoseAtNextPacket() {
    SetSendHook([this](int fd) {
      SetSendHook(nullptr);
      if (kind_ == kKilled && moment_ == kConnected) {
        WaitHeard("connected");
      }
      EXPECT_TRUE(kind_ == kKilled || peer.WaitConnected());
      Lose(fd);
      WaitNoticed();
    });
  }
  static bool Logged(const std::string& text) { return LogText().find(text) != std::string::npos; }
  // The receive thread knows that its connection is gone.
  static bool WaitNoticed() {
    return Eventually([] { return Logged(kLost) || Logged(kExits); });
  }
  void ReachAndLose();
  void Lose(int sending_fd = -1);
  void GoAndComeBack();
  std::string Outcome();
  char Call();
  char InitialiseAgain();
  static int InitialiseOnce();
  static bool Expected(char letter) {
    return GetParam().outcome().find(letter) != std::string::npos;
  }

  const Moment moment_ = GetParam().moment;
  const Kind kind_ = GetParam().kind;
  const std::shared_ptr<std::atomic<int>> result_ = std::make_shared<std::atomic<int>>(kUnderWay);
  std::optional<DeafSocket> deaf_;
  std::future<void> return_;
  long base_threads_ = 0;
  bool begun_ = false;
  std::atomic<bool> in_callback_{false};
  std::atomic<bool> lost_{false};
  static constexpr int kUnderWay = -100;
  static constexpr int kNoResults = -101;
};

void LossTest::ReachAndLose() {
  switch (moment_) {
    case kConnected:
      LoseAtNextPacket();
      Begin(orvd_svc_init);
      return;
    case kInitSent:
      Begin(orvd_svc_init);
      WaitHeardByManager("INIT");
      return Lose();
    case kDeinitialising:
      InitialiseAndOffer();
      LoseAtNextPacket();
      Begin([] { return orvd_svc_deinit(kServiceId); });
      return;
    default:
      break;
  }
  recorder.SetHook([this](const orvd_req_t& req) {
    if (req.type == ORVD_PERMISSION_CHANGE) {
      in_callback_ = true;
      Eventually([this] { return lost_.load(); });
    }
  });
  InitialiseAndOffer();
  if (moment_ > kSessionStarted) {
    ASSERT_TRUE(recorder.WaitFor("ready 0x00000010::1 session 9"));
  }
  switch (moment_) {
    case kTaskRunning:
      ASSERT_TRUE(Eventually([] { return running == 1; }));
      break;
    case kTaskAnswering:
      LoseAtNextPacket();
      let_go = true;
      return;
    case kQueryWaiting:
      Begin([] { return orvd_permission_query(kSession, {"p"}).empty() ? kNoResults : 1; });
      WaitHeardByManager("PERMISSION");
      break;
    case kNotified:
      ASSERT_TRUE(Eventually([this] { return in_callback_.load(); }));
      break;
    case kReconnecting:
      GoAndComeBack();
      break;
    default:
      break;
  }
  Lose();
  lost_ = true;
}

void LossTest::GoAndComeBack() {
  if (kind_ == kKilled) {
    peer.StopListening();
    ASSERT_TRUE(Start());
  }
  peer.HangUp();
  ASSERT_TRUE(recorder.WaitFor("reconnected 0x00000010::0"));
  ASSERT_TRUE(kind_ == kKilled || peer.WaitConnections(2));
}

void LossTest::Lose(int sending_fd) {
  switch (kind_) {
    case kClosed:
      return peer.HangUp();
    case kReset:
      peer.StopReading();
      ASSERT_TRUE(sending_fd < 0 ? orvd_send_to_manager_raw("unread") == 0
                                 : send(sending_fd, "unread", 6, 0) == 6);
      ASSERT_TRUE(peer.HangUpWithReset());
      return peer.ResumeReading();
    case kEmpty:
      return peer.SendEmptyPacket();
    case kHalfClosed:
      return peer.HangUpForWriting();
    case kKilled:
      unlink(kSharedPath);  // or a quick client connects to the dying process once more
      Kill();
      return peer.Listen();
    case kRefused:
      peer.StopListening();
      deaf_.emplace();
      return peer.HangUp();
    case kBackLater:
      peer.StopListening();
      peer.HangUp();
      return_ = std::async(std::launch::async, [this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        peer.Listen();
      });
  }
}

std::string LossTest::Outcome() {
  EXPECT_TRUE(WaitNoticed());
  const bool lost = Logged(kLost);
  const bool was_ready = moment_ >= kReadySent && moment_ <= kReconnecting;
  if (lost && kind_ == kRefused && moment_ != kReconnecting) {
    EXPECT_TRUE(Eventually([] { return Logged("(connection failed Connection refused)"); }));
  } else if (lost) {
    EXPECT_TRUE(Eventually([] { return Logged(kBack); }));
    EXPECT_TRUE(!was_ready || recorder.WaitFor("reconnected 0x00000010::0"));
  }
  std::string letters;
  const auto add = [&letters](bool holds, char letter) {
    if (holds) {
      letters += letter;
    }
  };
  const std::string events = "\n" + recorder.events();
  for (const char* event :
       {"\nterminated 0x00000010", "\nend 0x00000010", "\nreconnected 0x00000010"}) {
    add(events.find(event) != std::string::npos, static_cast<char>(std::toupper(event[1])));
  }
  add(lost, 'L');
  add(Logged(std::string(kExits) + "104"), 'X');
  add(Logged(std::string(kExits) + "9"), '9');
  add(Logged(kBack), 'B');
  if (moment_ == kTaskRunning || moment_ == kTaskAnswering) {
    let_go = true;
    const orvd::Milliseconds limit = Expected('U') ? kShort : orvd::kPatience;
    add(true, peer.NextOf("exec_task", limit) ? 'A' : 'U');
  }
  if (begun_) {
    add(true, Call());
  }
  let_go = true;
  const bool initialises_for_ever = moment_ <= kInitSent && *result_ == kUnderWay;
  add(true, initialises_for_ever ? '-' : InitialiseAgain());
  return letters;
}

char LossTest::Call() {
  const auto returned = [this] { return *result_ != kUnderWay; };
  if (Expected('W')) {
    std::this_thread::sleep_for(kShort);
  } else {
    Eventually(returned);
  }
  if (!returned()) {
    return 'W';
  }
  return *result_ == kNoResults ? 'N' : *result_ == -1 ? 'F' : *result_ == 0 ? 'O' : '?';
}

// kUnderWay when it does not return.
int LossTest::InitialiseOnce() {
  auto result = std::make_shared<std::promise<int>>();
  auto future = result->get_future();
  std::thread([result] { result->set_value(orvd_svc_init()); }).detach();
  const orvd::Milliseconds limit = Expected('-') ? kShort : orvd::kPatience;
  return future.wait_for(limit) == std::future_status::ready ? future.get() : kUnderWay;
}

char LossTest::InitialiseAgain() {
  const bool initialised = moment_ != kConnected;
  EXPECT_EQ(orvd_svc_deinit(kServiceId), initialised && moment_ != kDeinitialising ? 0 : -3);
  if (return_.valid()) {
    return_.wait();
  }
  EXPECT_TRUE(!initialised || ReceiveThreadEnds());
  if (kind_ == kRefused) {
    deaf_.reset();
    peer.Listen();
  }
  // The next Manager agrees to everything and leads nowhere.
  peer.SetRule("start_session", nullptr);
  peer.AgreeToEverything(kServiceId);
  if (Expected('D') || moment_ == kReconnecting) {
    // INIT goes to the lost connection before that is read: sent later it would go to a new one,
    // behind whose reconnection nobody reads.
    FailNext(Call::kRecvfrom, EINTR);
  }
  int result = InitialiseOnce();
  const bool later = result == -1;
  if (later) {
    EXPECT_TRUE(ReceiveThreadEnds());
    result = InitialiseOnce();
  }
  if (result != kServiceId) {
    return result == kUnderWay ? '-' : '?';
  }
  Offer(0x30, {1}, TaskFunction);
  OpenSession(20, 0x30, 1);
  peer.Send(Task(20, 0x30, 2));
  EXPECT_TRUE(peer.NextOf("exec_task"));
  return later ? 'D' : 'S';
}

TEST_P(LossTest, ComesToThis) {
  ReachAndLose();
  EXPECT_EQ(Outcome(), GetParam().outcome());
}

INSTANTIATE_TEST_SUITE_P(, LossTest, testing::ValuesIn(AllCells()),
                         [](const testing::TestParamInfo<Cell>& cell) {
                           return cell.param.name();
                         });

}  // namespace
