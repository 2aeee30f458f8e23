// One thread is stopped at some moment while another thread of the service acts. Afterwards a
// session with the same id must start, become ready, run one task and end. No other session, pair
// or event may remain.

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <utility>

#include "support/real_function.h"
#include "support/service_fixture.h"

namespace {

constexpr uint32_t kOpcode = 0x10;
constexpr uint32_t kSession = 9;

// Stops one thread: the first that logs a line with a given part (the place). With 0 it stops at
// the place, with N before the library locks its N-th mutex after the place.
enum State { kOpen, kAwaiting, kCounting, kHolding, kMissed };
std::atomic<State> gate{kOpen};
std::atomic<int> locks_to_pass{0};

// How often this thread passes before it stops: at the place, and before each lock. -1: it does not
// stop.
struct LocksLeft {
  int number = -1;
  ~LocksLeft() { Miss(); }
  void Pass() {
    if (number >= 0 && number-- == 0) {
      gate = kHolding;
      Eventually([] { return gate == kOpen; });
    }
  }
  void Miss() {
    if (std::exchange(number, -1) >= 0) {
      gate = kMissed;
    }
  }
};
thread_local LocksLeft locks_left;

void StopAt(const std::string& place) {
  SetLogHook([place](const std::string& line) {
    const bool is_there = line.find(place) != std::string::npos;
    if (is_there || line == "Waiting for recv from server") {
      locks_left.Miss();
    }
    State awaiting = kAwaiting;
    if (is_there && gate.compare_exchange_strong(awaiting, kCounting)) {
      locks_left.number = locks_to_pass;
      locks_left.Pass();
    }
  });
}
void AwaitThread(int locks) {
  locks_to_pass = locks;
  gate = kAwaiting;
}
// Returns false when the thread locks fewer mutexes after the place.
bool IsStopped() {
  EXPECT_TRUE(Eventually([] { return gate == kHolding || gate == kMissed; }));
  return gate == kHolding;
}

int OnEvent(int /*service_id*/, orvd_req_t* req, void* /*user_data*/) {
  AddToLog("event " + std::to_string(req->type));
  return 0;
}

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
  AddToLog("task runs");
  call->result = "\"done\":1";
  return 0;
}

// Each initialisation gets a new id, from 0 on. So a late call with an old id is refused.
std::atomic<int> next_id{-1};

int RegisterAs(int id, uint32_t opcode) {
  return _orvd_svc_register_auth(static_cast<uint32_t>(id), opcode,
                                 orvd::Definition(opcode, {1, 2, 3, 4, 5}).c_str(), "t");
}
int ReadyAs(int id, uint32_t opcode) {
  AddToLog("readiness begins");
  return _orvd_svc_ready(static_cast<uint32_t>(id), opcode, OnEvent, nullptr, RunTask);
}

// Waits up to 0.1 seconds, which is enough for a call that does not block.
void WaitAWhile(const std::function<bool()>& condition) {
  for (int i = 0; i < 100 && !condition(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// Runs a call on its own thread, because it may never return.
using Finished = std::shared_ptr<std::atomic<bool>>;
Finished Begin(std::function<void()> call) {
  auto finished = std::make_shared<std::atomic<bool>>(false);
  std::thread([call = std::move(call), finished] {
    call();
    *finished = true;
  }).detach();
  WaitAWhile([&] { return finished->load(); });
  return finished;
}

bool HasReconnected() {
  return LogText().find("reconnected to manager") != std::string::npos;
}

// For the session that Open has left: the pairs 1 to 4 are started, and pair 1 is ready.
const std::string kEnd = R"({"req_type":"end_session","session_id":9,"opcodes":[]})";
const std::string kStart = orvd::SessionMessage("start_session", kSession, kOpcode, {5});
const std::string kReady = orvd::SessionMessage("ready_session", kSession, kOpcode, {2, 3, 4});
const std::string kTask = orvd::TaskMessage(kSession, kOpcode, 1, 1);
const std::string kNotification = R"({"req_type":"permission_change"})";

struct Moment {
  const char* name;
  // A message or act of the Manager, or a call of the service. "Loss": the Manager hangs up.
  // "Away": it also does not listen.
  std::string trigger;
  const char* place;
};
const Moment kMoments[] = {
    {"LossRead", "Loss", "Communication with manager failed"},
    {"Terminated", "Loss", "event 0"},
    {"EndTold", "Loss", "event 3"},
    {"Reconnecting", "Away", "(connection failed"},
    {"Reconnected", "Loss", "event 1"},
    {"Start", kStart, "Client received"},
    {"Ready", kReady, "Client received"},
    {"End", kEnd, "Client received"},
    {"Task", kTask, "Client received"},
    {"TaskRuns", kTask, "task runs"},
    {"Notification", kNotification, "Client received"},
    {"Registering", "Register", "json is"},
    {"RegistrationAnswer", "Register", "Client received"},
    {"PairAdded", "Register", "Successfully authed"},
    {"Readying", "Ready", "readiness begins"},
    {"ReadinessAnswer", "Ready", "Client received"},
};
const std::string kActions[] = {"Deinit", "InitAgain", "Ready", "Register", "Loss"};

struct StoppedThreadTest : ServiceTest {
  StoppedThreadTest() {
    SetDebugLevel(4);
    peer.SetRule("INIT",
                 [](const std::string& /*request*/) { return orvd::InitAnswer(++next_id); });
  }
  ~StoppedThreadTest() override {
    SetLogHook(nullptr);
    Deinit();
  }
  int Deinit() const { return orvd_svc_deinit(static_cast<unsigned>(id)); }

  void InitAndOffer() {
    Deinit();
    ASSERT_TRUE(Eventually([this] { return (id = orvd_svc_init()) >= 0; }));
    ASSERT_TRUE(RegisterAs(id, kOpcode) == 0 && ReadyAs(id, kOpcode) == 0);
    peer.SkipAll();
  }
  // `survives`: the old session still exists, because its connection was not lost. The Manager ends
  // it first.
  void Open(bool survives) {
    if (survives) {
      peer.Send(kEnd);
      ASSERT_TRUE(peer.NextOf("end_session"));
    }
    peer.Send(orvd::SessionMessage("start_session", kSession, kOpcode, {1, 2, 3, 4}));
    EXPECT_THAT(Next("start_session"), testing::HasSubstr("Success"));
    peer.Send(orvd::SessionMessage("ready_session", kSession, kOpcode, {1}));
  }
  // Returns the next message of this kind. Skips the answer to the trigger's task.
  std::string Next(const std::string& kind, orvd::Milliseconds limit = orvd::kPatience) {
    const std::string message = peer.NextOf(kind, limit).value_or("none");
    return message.find(R"("transac_id":1,)") != std::string::npos ? Next(kind, limit) : message;
  }
  void UseAndEnd() {
    peer.Send(orvd::TaskMessage(kSession, kOpcode, 1, 2));
    EXPECT_THAT(Next("exec_task"), testing::HasSubstr(R"("transac_id":2,)"));
    peer.Send(kNotification);
    peer.Send(kEnd);
    EXPECT_THAT(Next("end_session"), testing::HasSubstr("Success"));
    EXPECT_EQ(Next("exec_task", orvd::Milliseconds(0)), "none");
    std::string events;
    for (const LogLine& line : Log()) {
      events += line.text.rfind("event ", 0) == 0 && line.text[6] > '1' ? line.text.substr(6) : "";
    }
    // Four pairs start, one becomes ready, the ready opcode gets one notification, four pairs end.
    EXPECT_EQ(events.substr(std::min(events.size(), events.rfind("2222"))), "2222643333");
  }

  std::atomic<int> id{-1};
};

struct MomentTest : StoppedThreadTest,
                    testing::WithParamInterface<std::tuple<Moment, std::string>> {
  void Do(const std::string& what, int its_id, uint32_t its_opcode) {
    if (what == "Loss" || what == "Away") {
      what == "Away" ? peer.StopListening() : void();
      peer.HangUp();
    } else if (what == "Ready" || what == "Register") {
      (what == "Ready" ? ReadyAs : RegisterAs)(its_id, its_opcode);
    } else if (what == "Deinit") {
      Deinit();
    } else {
      peer.Send(what);
    }
  }
  bool TryAt(int locks);

  // For the calls of one attempt. The next attempt has other opcodes, because a call may still
  // wait.
  uint32_t opcode = 0x1000;
};

// Returns false when the moment has no such lock.
bool MomentTest::TryAt(int locks) {
  const auto& [moment, action] = GetParam();
  const auto begin = [this](const std::string& what, uint32_t its_opcode) {
    return Begin([this, what, its_id = id.load(), its_opcode] { Do(what, its_id, its_opcode); });
  };
  const bool lost = moment.trigger == "Loss" || moment.trigger == "Away" || action == "Loss";
  const bool again = action == "InitAgain";
  InitAndOffer();
  Open(false);
  Settle();
  AwaitThread(locks);
  const Finished triggered = begin(moment.trigger, opcode);
  const bool reached = IsStopped();
  peer.Listen();
  Finished acted;
  if (reached) {
    acted = again ? Begin([&] { InitAndOffer(), Open(!lost); }) : begin(action, opcode + 1);
  }
  gate = kOpen;
  WaitAWhile([&] { return triggered->load(); });
  if (reached && action != "Ready" && action != "Register") {
    EXPECT_TRUE(Eventually([&] { return acted->load(); }));
  }
  if (!reached || !again) {
    InitAndOffer();
    Open(!lost || !reached);
  }
  UseAndEnd();
  for (const uint32_t end = opcode + 2; opcode != end; ++opcode) {
    EXPECT_FALSE(is_service_supported(opcode, 1) || is_service_supported(opcode, 2)) << opcode;
  }
  return reached;
}

TEST_P(MomentTest, NextSessionWorksAndNothingElseRemains) {
  const Moment& moment = std::get<0>(GetParam());
  StopAt(moment.place);
  int locks = 0;
  while (TryAt(locks) && !HasFailure()) {
    ++locks;
  }
  EXPECT_GT(locks, 0) << "failed after " << locks << " locks";
}

INSTANTIATE_TEST_SUITE_P(, MomentTest,
                         testing::Combine(testing::ValuesIn(kMoments), testing::ValuesIn(kActions)),
                         [](const auto& row) {
                           return std::get<0>(row.param).name + std::get<1>(row.param);
                         });

// A connection is lost directly after a reconnection, and the next initialisation takes it over.
// Its receive thread reconnects again before INIT is sent.
TEST_F(StoppedThreadTest, InitialisationReturnsWhenItsConnectionIsLostAtOnce) {
  StopAt("ORVEX service init");
  int locks = 0;
  for (bool reached = true; reached; ++locks) {
    SCOPED_TRACE(locks);
    ClearLog();
    InitAndOffer();
    peer.HangUp();
    ASSERT_TRUE(Eventually([] { return HasReconnected(); }));
    ASSERT_TRUE(peer.WaitConnected());
    peer.HangUp();
    Deinit();
    ClearLog();
    AwaitThread(locks);
    const Finished init = Begin([this] { id = orvd_svc_init(); });
    reached = IsStopped();
    WaitAWhile(HasReconnected);
    gate = kOpen;
    ASSERT_TRUE(Eventually([&] { return init->load(); }));
    InitAndOffer();
    Open(false);
    UseAndEnd();
  }
  EXPECT_GT(locks, 2);
}

TEST_F(StoppedThreadTest, DescriptorOfALostConnectionIsClosedBeforeTheCallback) {
  StopAt("event 1");
  InitAndOffer();
  peer.SetRule("AUTH", nullptr);
  Begin([this] { RegisterAs(id, kOpcode); });  // waits without limit
  ASSERT_TRUE(peer.NextOf("AUTH"));
  const long before = CountEntries("/proc/self/fd");
  AwaitThread(0);
  peer.HangUp();
  ASSERT_TRUE(IsStopped() && peer.WaitConnected());
  EXPECT_EQ(CountEntries("/proc/self/fd"), before);
  gate = kOpen;
}

}  // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const next = RealFunction(&pthread_mutex_lock, "pthread_mutex_lock");
  Dl_info caller{};
  if (locks_left.number >= 0 && dladdr(__builtin_return_address(0), &caller) != 0 &&
      strstr(caller.dli_fname, "liborvex2_0") != nullptr) {
    locks_left.Pass();
  }
  return next(mutex);
}
