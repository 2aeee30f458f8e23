// The Manager goes away and comes back.

#include <array>
#include <future>

#include "link/connection.h"
#include "link/reconnection.h"
#include "support/frozen_clock.h"
#include "support/service_fixture.h"

namespace {

const std::string kNobodyThere =
    "Failed to connect to ORVEX Manager (connection failed No such file or directory)";
constexpr const char* kTimeOut = "Failed to reconnect to manager due to time out";

class ReconnectionTest : public ServiceTest {
 protected:
  ReconnectionTest() {
    SetDebugLevel(4);
    Init();
    Offer(0x20, {1});
    Offer(0x10, {1});
    OpenSession(9, 0x20, 1);
    recorder.Clear();
    ClearLog();
  }
  // On the receive thread, in the callback of such an event.
  void On(orvd_status_t event, const std::function<void()>& act) {
    recorder.SetHook([event, act](const orvd_req_t& req) {
      if (req.type == event) {
        act();
      }
    });
  }
  const long threads_ = Threads();  // without a receive thread
};

TEST_F(ReconnectionTest, GivesUpInTimeAndTellsNobody) {
  On(ORVD_TERMINATED, [] { FreezeClock(); });
  peer.StopListening();
  peer.HangUp();
  ASSERT_TRUE(WaitForThreads(threads_));
  EXPECT_EQ(CountLogged(kNobodyThere), 402U);
  EXPECT_EQ(CountLogged(kTimeOut), 1U);
  EXPECT_EQ(recorder.events(), "terminated 0x00000010::0\nend 0x00000020::1 session 9\n");

  const auto reconnect = [](const std::function<void()>& in_pause) {
    const auto call = [&] {
      FreezeClock([&](auto /*length*/) { return in_pause(), true; });
      return reconnect_to_manager();
    };
    return std::async(std::launch::async, call).get();
  };
  EXPECT_EQ(reconnect([] {}), -1);
  EXPECT_EQ(CountLogged(kTimeOut), 2U);
  EXPECT_EQ(reconnect([] { orvd_svc_deinit(kServiceId); }), -1);
  EXPECT_EQ(CountLogged(kTimeOut), 2U);
  EXPECT_EQ(reconnect([this] { peer.Listen(); }), 0);
}

TEST_F(ReconnectionTest, AStatusOneCallbackMayInitialiseAgain) {
  std::promise<int> result;
  On(ORVD_RECONNECTED, [&] {
    EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
    result.set_value(orvd_svc_init() + Register(0x20, {1}));
  });
  peer.HangUp();
  EXPECT_EQ(result.get_future().get(), kServiceId);
  Settle();  // the new thread serves
  EXPECT_EQ(peer.connections(), 2U);
}

std::string NameOfThisThread() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

// The path follows the thread's name, so the receive thread has none of its own.
TEST_F(ReconnectionTest, EachAttemptChoosesThePathAnew) {
  orvd::ManagerPeer dedicated(kDedicatedPath);
  On(ORVD_TERMINATED, [name = NameOfThisThread()] {
    EXPECT_EQ(NameOfThisThread(), name);
    // On the thread that will read them: the host's store has no lock.
    SetTestProperty("vendor.orvex.one.service", "vendor.radioWarden");
    SetTestProperty("ro.build.type", "eng");
  });
  peer.HangUp();
  EXPECT_TRUE(dedicated.WaitConnected());
  EXPECT_TRUE(recorder.WaitFor("reconnected 0x00000010::0"));
}

// Holds the receive thread in a callback, while the service initialises again.
class HeldThreadTest : public ReconnectionTest {
 protected:
  void InitialiseAgainDuring(orvd_status_t event, const std::function<void()>& cause) {
    std::promise<void> held;
    On(event, [&held, let_go = let_go_.get_future().share()] {
      held.set_value();
      let_go.wait();
    });
    cause();
    held.get_future().wait();
    recorder.SetHook(nullptr);
    ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
    Init();
    Offer(0x20, {1});
  }
  std::promise<void> let_go_;
};

TEST_F(HeldThreadTest, SaysNothingOnTheNewConnection) {
  InitialiseAgainDuring(ORVD_SESSION_START,
                        [this] { peer.Send(SessionMessage("start_session", 11, 0x10, {1})); });
  let_go_.set_value();
  EXPECT_TRUE(WaitLogged("Failed to send start session response to ORVEX Manager"));
  Settle();
  EXPECT_EQ(peer.NextOf("start_session", orvd::Milliseconds(0)), std::nullopt);
}

TEST_F(HeldThreadTest, EndsNoSessionOfTheNewConnection) {
  InitialiseAgainDuring(ORVD_TERMINATED, [this] { peer.HangUp(); });
  OpenSession(9, 0x20, 1);  // as before the loss
  OpenSession(11, 0x20, 1);
  recorder.Clear();
  let_go_.set_value();
  ASSERT_TRUE(WaitForThreads(threads_ + 1));
  for (const uint32_t session_id : {9U, 11U}) {
    peer.Send(SessionMessage("start_session", session_id, 0x20, {1}));
    const std::string pair = std::to_string(session_id) + " with 0x00000020::1";
    EXPECT_TRUE(WaitLogged("Session " + pair + " already active"));
  }
  EXPECT_EQ(recorder.events(), "");
}

}  // namespace
