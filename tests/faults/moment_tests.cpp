// One thread is stopped at some moment while another thread of the service acts. Afterwards a
// session with the same id must start, become ready, run one task and end. No other session, pair
// or event may remain.

#include <android/log.h>
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

#include "support/service_fixture.h"

namespace {

constexpr uint32_t kOpcode = 0x10;
constexpr uint32_t kSession = 9;

// Stops the first thread that logs a line with a given part (the place). With `locks` > 0, stops it
// when the library locks that many mutexes after the place.
class Gate {
 public:
  void Await(const std::string& place, int locks) {
    const std::lock_guard<std::mutex> lock(mutex_);
    place_ = place;
    locks_ = locks;
    thread_ = 0;
    state_ = State::kAwaiting;
  }
  void Pass(const std::string& text) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      const bool is_there = text.find(place_) != std::string::npos;
      if (IsCounting() && (is_there || text == "Waiting for recv from server")) {
        Miss();
      } else if (is_there && state_ == State::kAwaiting && thread_ == 0) {
        thread_ = gettid();
        counter.locks_left = locks_ + 1;
      } else {
        return;
      }
    }
    PassLock();
  }
  void PassLock() {
    if (counter.locks_left > 0 && --counter.locks_left == 0) {
      counter.locks_left = -1;
      state_ = State::kHolding;
      Eventually([this] { return state_ == State::kOpen; });
    }
  }
  // Whether this thread has passed the place and is not stopped yet.
  static bool IsCounting() { return counter.locks_left >= 0; }
  // Waits for the outcome. Returns false when the thread locks fewer mutexes after the place.
  bool IsReached() const {
    EXPECT_TRUE(Eventually([this] { return state_ != State::kAwaiting; }));
    return state_ == State::kHolding;
  }
  void Open() { state_ = State::kOpen; }

 private:
  enum class State { kAwaiting, kHolding, kMissed, kOpen };
  struct Counter {
    int locks_left = -1;
    ~Counter();
  };
  static thread_local Counter counter;

  void Miss() {
    counter.locks_left = -1;
    state_ = State::kMissed;
  }

  std::mutex mutex_;
  std::string place_;
  int locks_ = 0;
  std::atomic<pid_t> thread_{0};
  std::atomic<State> state_{State::kOpen};
};
thread_local Gate::Counter Gate::counter;
Gate& gate = *new Gate;

Gate::Counter::~Counter() {
  if (locks_left >= 0) {
    gate.Miss();
  }
}

// Adds a line to the log. The log's hook can stop the thread there.
void Note(const std::string& event) {
  __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s", event.c_str());
}

int OnEvent(int /*service_id*/, orvd_req_t* req, void* /*user_data*/) {
  Note("event " + std::to_string(req->type));
  return 0;
}

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t /*args*/) {
  Note("task runs");
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
  Note("readiness begins");
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

// The pairs 1 to 4 are started, and pair 1 is ready.
const std::string kEnd = R"({"req_type":"end_session","session_id":9,"opcodes":[]})";
const std::string kStart = orvd::SessionMessage("start_session", kSession, kOpcode, {5});
const std::string kReady = orvd::SessionMessage("ready_session", kSession, kOpcode, {2, 3, 4});
const std::string kTask = orvd::TaskMessage(kSession, kOpcode, 1, 1);
const std::string kNotification = R"({"req_type":"permission_change"})";

struct Moment {
  const char* name;
  std::string trigger;  // a message or act of the Manager, or a call of the service
  const char* place;
  int first_lock = 0;
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
    {"Readying", "Ready", "readiness begins", 2},
    {"ReadinessAnswer", "Ready", "Client received"},
};
const std::string kActions[] = {"Deinit", "InitAgain", "Ready", "Register", "Loss"};

class StoppedThreadTest : public ServiceTest {
 public:
  StoppedThreadTest() {
    SetDebugLevel(4);
    SetLogHook([](const std::string& line) { gate.Pass(line); });
    peer.SetRule("INIT", [](const std::string& /*request*/) {
      return R"({"req_type":"INIT","service_id":)" + std::to_string(++next_id) + "}";
    });
  }
  ~StoppedThreadTest() override {
    SetLogHook(nullptr);
    Deinit();
  }

 protected:
  int Deinit() const { return orvd_svc_deinit(static_cast<unsigned>(id_)); }

  void InitAndOffer() {
    Deinit();
    ASSERT_TRUE(Eventually([this] { return (id_ = orvd_svc_init()) >= 0; }));
    ASSERT_EQ(RegisterAs(id_, kOpcode) + ReadyAs(id_, kOpcode), 0);
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
  std::string Next(const std::string& kind, orvd::Milliseconds limit = orvd::kPatience);
  void UseAndEnd();

  std::atomic<int> id_{-1};
};

class MomentTest : public StoppedThreadTest,
                   public testing::WithParamInterface<std::tuple<Moment, std::string>> {
 protected:
  void Do(const std::string& what, int id, uint32_t opcode);
  bool TryAt(int locks);

  // For the calls of one attempt. The next attempt has other opcodes, because a call may still
  // wait.
  uint32_t opcode_ = 0x1000;
};

void MomentTest::Do(const std::string& what, int id, uint32_t opcode) {
  if (what == "Loss" || what == "Away") {
    what == "Away" ? peer.StopListening() : void();
    peer.HangUp();
  } else if (what == "Ready" || what == "Register") {
    (what == "Ready" ? ReadyAs : RegisterAs)(id, opcode);
  } else if (what == "Deinit") {
    Deinit();
  } else {
    peer.Send(what);
  }
}

// Returns the next message of this kind. Skips the answer to the trigger's task.
std::string StoppedThreadTest::Next(const std::string& kind, orvd::Milliseconds limit) {
  auto message = peer.NextOf(kind, limit);
  if (message && message->find(R"("transac_id":1,)") != std::string::npos) {
    message = peer.NextOf(kind, limit);
  }
  return message.value_or("none");
}

void StoppedThreadTest::UseAndEnd() {
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

// Returns false when the moment has no such lock.
bool MomentTest::TryAt(int locks) {
  const auto& [moment, action] = GetParam();
  const auto begin = [this](const std::string& what, uint32_t opcode) {
    return Begin([this, what, id = id_.load(), opcode] { Do(what, id, opcode); });
  };
  const bool lost = moment.trigger == "Loss" || moment.trigger == "Away" || action == "Loss";
  const bool again = action == "InitAgain";
  InitAndOffer();
  Open(false);
  Settle();
  gate.Await(moment.place, locks);
  const Finished triggered = begin(moment.trigger, opcode_);
  const bool reached = gate.IsReached();
  peer.Listen();
  Finished acted;
  if (reached) {
    acted = again ? Begin([&] { InitAndOffer(), Open(!lost); }) : begin(action, opcode_ + 1);
  }
  gate.Open();
  WaitAWhile([&] { return triggered->load(); });
  if (reached && action != "Ready" && action != "Register") {
    EXPECT_TRUE(Eventually([&] { return acted->load(); }));
  }
  if (!reached || !again) {
    InitAndOffer();
    Open(!lost || !reached);
  }
  UseAndEnd();
  for (const uint32_t opcode : {opcode_, opcode_ + 1}) {
    EXPECT_FALSE(is_service_supported(opcode, 1) || is_service_supported(opcode, 2));
  }
  opcode_ += 2;
  return reached;
}

TEST_P(MomentTest, NextSessionWorksAndNothingElseRemains) {
  const int first = std::get<0>(GetParam()).first_lock;
  int locks = first;
  while (TryAt(locks) && !HasFailure()) {
    ++locks;
  }
  EXPECT_GT(locks, first) << "failed after " << locks << " locks";
}

INSTANTIATE_TEST_SUITE_P(, MomentTest,
                         testing::Combine(testing::ValuesIn(kMoments), testing::ValuesIn(kActions)),
                         [](const auto& row) {
                           return std::get<0>(row.param).name + std::get<1>(row.param);
                         });

// A connection is lost directly after a reconnection, and the next initialisation takes it over.
// Its receive thread reconnects again before INIT is sent.
TEST_F(StoppedThreadTest, InitialisationReturnsWhenItsConnectionIsLostAtOnce) {
  bool reached = true;
  for (int locks = 0; reached; ++locks) {
    SCOPED_TRACE(locks);
    ClearLog();
    InitAndOffer();
    peer.HangUp();
    ASSERT_TRUE(Eventually([] { return HasReconnected(); }));
    ASSERT_TRUE(peer.WaitConnected());
    peer.HangUp();
    Deinit();
    ClearLog();
    gate.Await("ORVEX service init", locks);
    const Finished init = Begin([this] { id_ = orvd_svc_init(); });
    reached = gate.IsReached();
    WaitAWhile(HasReconnected);
    gate.Open();
    ASSERT_TRUE(Eventually([&] { return init->load(); }));
    InitAndOffer();
    Open(false);
    UseAndEnd();
  }
}

TEST_F(StoppedThreadTest, DescriptorOfALostConnectionIsClosedBeforeTheCallback) {
  InitAndOffer();
  peer.SetRule("AUTH", nullptr);
  Begin([this] { RegisterAs(id_, kOpcode); });  // waits without limit
  const long before = CountEntries("/proc/self/fd");
  gate.Await("event 1", 0);
  peer.HangUp();
  ASSERT_TRUE(gate.IsReached() && peer.WaitConnected());
  EXPECT_EQ(CountEntries("/proc/self/fd"), before);
  gate.Open();
}

}  // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const next =
      reinterpret_cast<int (*)(pthread_mutex_t*)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  Dl_info caller{};
  if (Gate::IsCounting() && dladdr(__builtin_return_address(0), &caller) != 0 &&
      strstr(caller.dli_fname, "liborvex2_0") != nullptr) {
    gate.PassLock();
  }
  return next(mutex);
}
