// Unit tests of the example service against a Manager in the same process. The library connects to
// /dev/socket/orvd and to no other path. Where the Manager's socket must not be touched, or /dev is
// not writable, run the tests in a private /dev:
//
//   bwrap --die-with-parent --bind / / --dev /dev --dir /dev/socket -- ./sensor_hub_test

#include "sensor_hub.h"

#include <gtest/gtest.h>
#include <orvex/service.h>
#include <orvex_simulator/simulated_manager.h>

#include <thread>

namespace {

class SensorHubTest : public testing::Test {
 public:
  SensorHubTest() {
    sensor_hub::Offer(service_);
    running_ = std::thread([this] { EXPECT_EQ(service_.Run(), 0); });
  }
  ~SensorHubTest() override {
    service_.Stop();
    running_.join();
  }

 protected:
  orvd::SimulatedManager manager_;
  orvex::Service service_;
  std::thread running_;
};

TEST_F(SensorHubTest, TakesTypedArguments) {
  orvd::ManagedSession session = manager_.OpenSession(0xa001);
  const orvd::Answer answer =
      session.Call("set_limits", {"u8:255", "i16:-400", "u32:60000", "str:outer skin"});
  EXPECT_TRUE(answer.ok()) << answer.text;
  EXPECT_EQ(answer.func["limit"], -400);
  EXPECT_EQ(answer.func["label"], "outer skin");
}

TEST_F(SensorHubTest, TakesVectorsAndStructs) {
  orvd::ManagedSession session = manager_.OpenSession(0xa001);
  EXPECT_EQ(session.Call("average", {"f64[]:1.5,2,4"}).func["average"].asDouble(), 2.5);
  const orvd::Answer answer =
      session.Call("configure", {R"(struct:["str:gyroscope","u16:400","i32[]:-1,0,1"])"});
  EXPECT_EQ(answer.func["axes"], 3) << answer.text;
}

TEST_F(SensorHubTest, AnswersWithAFailure) {
  orvd::ManagedSession session = manager_.OpenSession(0xa001);
  const orvd::Answer answer = session.Call("average", {"f64[]:"});
  EXPECT_FALSE(answer.ok());
  EXPECT_EQ(answer.return_code, -1);
}

TEST_F(SensorHubTest, AnswersSeveralTasksAtATime) {
  orvd::ManagedSession session = manager_.OpenSession(0xa001);
  const int first = session.Send("average", {"f64[]:1,3"});
  const int second = session.Send("average", {"f64[]:5"});
  EXPECT_EQ(session.Await(second).func["average"].asDouble(), 5);
  EXPECT_EQ(session.Await(first).func["average"].asDouble(), 2);
}

// The hub asks for a second permission while the screen is on.
TEST_F(SensorHubTest, AsksForPermission) {
  manager_.SetInfo("client.name", "navigation");
  manager_.SetInfo("screen", "on");
  manager_.Deny("user.activity");
  orvd::ManagedSession session = manager_.OpenSession(0xa001);
  session.NotifyState("screen", "off");
  EXPECT_EQ(session.Call("check_access").func["client"], "navigation");
  session.NotifyState("screen", "on");
  EXPECT_FALSE(session.Call("check_access").ok());
  const std::vector<std::string> queries = manager_.Received("PERMISSION");
  ASSERT_EQ(queries.size(), 2U);
  EXPECT_NE(queries.back().find(R"("user.activity")"), std::string::npos) << queries.back();
  manager_.Grant("user.activity");
  session.NotifyPermission("user.activity", true);
  EXPECT_TRUE(session.Call("check_access").ok());
}

TEST_F(SensorHubTest, ServesAgainAfterALoss) {
  orvd::ManagedSession session = manager_.OpenSession(0xa001);
  manager_.peer().HangUp();
  EXPECT_TRUE(manager_.OpenSession(0xa001).Call("read_temperature").ok());
  EXPECT_THROW(session.Call("read_temperature"), orvd::ManagerError);
}

}  // namespace
