// The connection to the Manager is lost.

#include <array>
#include <future>
#include <thread>

#include "link/disconnect.h"
#include "link/reconnection.h"
#include "support/frozen_clock.h"
#include "support/service_fixture.h"

namespace {

const std::string kNoListener =
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
    ClearLog();
  }
  const long threads_ = Threads();  // without a receive thread
};

TEST_F(ReconnectionTest, GivesUpAfterTheTimeOutWithoutAFurtherEvent) {
  recorder.SetHook([](const orvd_req_t& /*on the receive thread*/) { FreezeClock(); });
  peer.StopListening();
  peer.HangUp();
  ASSERT_TRUE(WaitForThreads(threads_));
  EXPECT_EQ(CountLogged(kNoListener), 402U);  // every 50 ms, from 0 to 20.05 s
  EXPECT_EQ(CountLogged(kTimeOut), 1U);
  EXPECT_EQ(Events(), "terminated 0x00000010::0\nend 0x00000020::1 session 9\n");

  const auto reconnect = [](const std::function<void()>& in_pause) {
    const auto call = [&] {
      FreezeClock([&](auto /*length*/) { return in_pause(), true; });
      return reconnect_to_manager();
    };
    return std::async(std::launch::async, call).get();
  };
  EXPECT_EQ(reconnect([] {}), -1);
  EXPECT_EQ(reconnect([] { orvd_svc_deinit(kServiceId); }), -1);
  EXPECT_EQ(CountLogged(kTimeOut), 2U);
  EXPECT_EQ(reconnect([this] { peer.Listen(); }), 0);
}

std::string NameOfThisThread() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

// The path depends on the thread's name, so the receive thread must keep the name that it inherits.
TEST_F(ReconnectionTest, EachAttemptChoosesThePathAndACallbackMayInitialiseAgain) {
  orvd::ManagerPeer dedicated(kDedicatedPath);
  dedicated.AgreeToEverything(kServiceId);
  std::promise<int> result;
  recorder.SetHook([&, name = NameOfThisThread()](const orvd_req_t& req) {
    if (req.type == ORVD_TERMINATED) {
      EXPECT_EQ(NameOfThisThread(), name);
      // On the thread that reads them: the host's property store has no lock.
      android::base::SetProperty("vendor.orvex.one.service", "vendor.radioWarden");
      android::base::SetProperty("ro.build.type", "eng");
    } else if (req.type == ORVD_RECONNECTED) {
      EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
      const int id = orvd_svc_init();
      result.set_value(Register(0x20, {1}) == 0 ? id : -1);
    }
  });
  peer.HangUp();
  EXPECT_EQ(result.get_future().get(), kServiceId);
  EXPECT_TRUE(dedicated.NextOf("DINT"));
  dedicated.Send(R"({"req_type":"served"})");
  EXPECT_TRUE(WaitLogged("Unknown request type 'served'"));
  EXPECT_EQ(dedicated.connections(), 2U);
}

TEST_F(ReconnectionTest, OutdatedReceiveThreadSendsNothingOnTheNewConnection) {
  recorder.SetHook([](const orvd_req_t& /*start*/) {
    std::thread([] {
      EXPECT_TRUE(orvd_svc_deinit(kServiceId) == 0 && orvd_svc_init() == kServiceId);
    }).join();
  });
  peer.Send(orvd::SessionMessage("start_session", 11, 0x10, {1}));
  EXPECT_TRUE(WaitLogged("Failed to send start session response to ORVEX Manager"));
  Settle();
  EXPECT_EQ(peer.NextOf("start_session", orvd::Milliseconds(0)), std::nullopt);
}

}  // namespace
