// Sessions, notifications, permissions and limits of a service of the C++ layer.

#include <csignal>

#include "layer/hub_test.h"

namespace {

using orvex::Object, std::string, testing::HasSubstr;

TEST_F(HubTest, TheDefinitionIsMadeOrGivenAndASignalStops) {
  service = std::make_unique<orvex::Service>(options);
  service->Offer(0xa002, orvd::Definition(0xa002, {7}), "b");
  service->Offer(kOpcode, {1, 2}, "a\"b")
      .Definition(orvd::ParseObject(R"({"functions":["f"]})"))
      .Otherwise([] {});
  RunAside();
  EXPECT_EQ(
      peer.NextOf("AUTH").value_or(""),
      R"({"req_type":"AUTH","Service_Id":7,"Opcode":40961,"api_def":{"Orvex":{"functions":["f"],"opcode":"0x0000a001","subsystems":[{"id":1},{"id":2}]}},"Token":"a\"b"})");
  EXPECT_EQ(
      peer.NextOf("AUTH").value_or(""),
      R"({"req_type":"AUTH","Service_Id":7,"Opcode":40962,"api_def":{"Orvex":{"opcode":"0x0000a002","subsystems":[{"id":7}]}},"Token":"b"})");
  ASSERT_TRUE(WaitLogged("hub: serves with service id 7, opcodes: 2"));
  OpenSession(9, kOpcode, 1);
  EXPECT_EQ(Call("any"), "{}");
  ASSERT_EQ(raise(SIGTERM), 0);
  EXPECT_EQ(result.get(), 0);
  EXPECT_EQ(peer.NextOf("DINT").value_or(""), R"({"req_type":"DINT","Service_Id":7})");
  EXPECT_EQ(signal(SIGTERM, SIG_DFL), SIG_DFL);
}

// While a task holds, each handler of an event also tries to wait for the Manager.
TEST_F(HubTest, SessionsAreToldOnceAndOwnTheirState) {
  Start();
  SendHeldTask();
  SendSession("start_session", 8, {3, 4});
  EXPECT_EQ(Heard(), "hold/1 start/8/0/3 start/8/0/4 ");
  EXPECT_THAT(peer.NextOf("start_session").value_or(""), HasSubstr("Failed"));
  EXPECT_EQ(CountLogged("hub: OnSessionStart threw: no fourth; the pair is refused"), 1U);
  OpenSession(8, kOpcode + 1, 1);
  SendSession("start_session", 8, {1, 2});
  SendSession("ready_session", 8, {1, 2});
  EXPECT_EQ(Heard(), "start/8/1/1 ready/8/1/1 start/8/0/1 start/8/0/2 ready/8/0/1 ready/8/0/2 ");
  EXPECT_EQ(living, 3);
  EXPECT_EQ(Call("count", "", 8), R"({"n":2})");
  EXPECT_EQ(Call("count"), R"({"n":3})");
  EXPECT_EQ(Call("count", "", 8), R"({"n":3})");

  SendSession("end_session", 9, {1});
  peer.Send(orvd::EndSessionMessage(8));
  Settle();
  EXPECT_EQ(Heard(), "end/9/0/1 end/8/0/1 end/8/0/2 end/8/1/1 ");
  EXPECT_EQ(CountLogged("hub: OnSessionEnd threw: at the end; the service goes on"), 1U);
  EXPECT_EQ(living, 1);  // of the task that holds
  let_go = 1;
  EXPECT_THAT(NextAnswer(), HasSubstr("\"n\":3"));
  EXPECT_EQ(living, 0);
  // The library withdraws a pair that is started twice, and tells nobody.
  for (const char* told : {"go/1 start/9/0/1 ", "", "end/9/0/1 start/9/0/1 "}) {
    SendSession("start_session", 9, {1});
    EXPECT_EQ(Heard(), told);
  }
  OpenSession(9, kOpcode + 1, 1);
  EXPECT_EQ(Stop(), 0);
  EXPECT_EQ(Heard(), "start/9/1/1 ready/9/1/1 end/9/0/1 end/9/1/1 ");
  EXPECT_EQ(living, 0);
}

TEST_F(HubTest, NotificationsComeOnceAndSplit) {
  options.signals = false;
  Start();
  EXPECT_EQ(signal(SIGTERM, SIG_DFL), SIG_DFL);
  SendHeldTask();
  peer.Send(orvd::StateChangeMessage(4, "clock", "10:30", "p"));
  peer.Send(orvd::SettingChangeMessage(0, "s", "", "q"));
  peer.Send(orvd::PermissionChangeMessage(6, "x", true, "r"));
  Settle();
  EXPECT_EQ(Heard(), "hold/1 state/4/clock/10:30/p setting/0/s//q permission/6/x/1/r ");
  EXPECT_EQ(CountLogged("hub: OnPermissionChange threw: heard; the service goes on"), 1U);
}

TEST_F(HubTest, PermissionsAreAskedOnceUntilTheyAreForgotten) {
  Start();
  EXPECT_EQ(Ask("a"), R"({"granted":true} asked 1)");
  AnswerQueries("PERMISSION", R"("PermRes":["0"])");
  EXPECT_EQ(Ask("a"), R"({"granted":true} asked 0)");
  EXPECT_EQ(Ask("q\"q"), R"({"granted":false} asked 1)");
  EXPECT_THAT(last_query, HasSubstr(R"("Permissions":["q\"q"])"));
  EXPECT_EQ(Ask("q\"q"), R"({"granted":false} asked 0)");
  peer.Send(orvd::PermissionChangeMessage(8, "a", false, ""));
  peer.Send(orvd::PermissionChangeMessage(9, "b", false, ""));
  EXPECT_EQ(Ask("a"), R"({"granted":true} asked 0)");
  peer.Send(orvd::PermissionChangeMessage(9, "a", false, ""));
  EXPECT_EQ(Ask("a"), R"({"granted":false} asked 1)");
  EXPECT_EQ(Ask("a str:b"), R"({"granted":false} asked 0)");  // "a" is denied, so "b" is not asked
  AnswerQueries("PERMISSION", R"("PermRes":["1"])");
  OpenSession(8, kOpcode, 1);
  EXPECT_EQ(Ask("a", 8), R"({"granted":true} asked 1)");
  SendSession("end_session", 9, {1});
  OpenSession(9, kOpcode, 1);
  EXPECT_EQ(Ask("a"), R"({"granted":true} asked 1)");
  EXPECT_EQ(Ask("a", 8), R"({"granted":true} asked 0)");
  AnswerQueries("PERMISSION", R"("PermRes":["1","1"])");  // not the size of the question
  EXPECT_EQ(Ask("new"), R"({"granted":false} asked 1)");
  EXPECT_EQ(Ask("new"), R"({"granted":false} asked 1)");
  AnswerQueries("PERMISSION", R"("PermRes":["1"])");
  EXPECT_EQ(Ask("a str:b"), R"({"granted":true} asked 1)");
  EXPECT_THAT(last_query, HasSubstr(R"("Permissions":["b"])"));  // "a" is known
  EXPECT_EQ(Ask("c str:c"), R"({"granted":true} asked 1)");
  EXPECT_THAT(last_query, HasSubstr(R"("Permissions":["c"])"));
  EXPECT_EQ(Ask("d str:" + string(300000, 'x')), R"({"granted":false} asked 0)");  // fits no packet
  EXPECT_EQ(Ask("d"), R"({"granted":true} asked 1)");
}

TEST_F(HubTest, TasksThatAskAtOnceShareOneQuestionWhichAChangeOutdates) {
  Start();
  peer.StopReading();
  for (int task = 0; task < 8; ++task) {
    SendTask("needs", "str:a");
  }
  ASSERT_TRUE(WaitBlockedTasks(8));
  peer.Send(orvd::PermissionChangeMessage(9, "a", false, ""));
  Settle();
  peer.ResumeReading();
  for (int task = 0; task < 8; ++task) {
    EXPECT_THAT(NextAnswer(), HasSubstr("\"granted\":true"));
  }
  EXPECT_EQ(queries, 1);
  EXPECT_EQ(Ask("a"), R"({"granted":true} asked 1)");
}

TEST_F(HubTest, InformationIsGivenOrAFailure) {
  Make();
  api->On("info", [](orvex::Call& call, const string& item) {
    return Object{{"info", call.Info(item)}};
  });
  Start();
  AnswerQueries("INFO_QUERY", R"("QueryInfosRes":["SUCCESS:a:b"])");
  EXPECT_EQ(Call("info", R"(str:it\em)"), R"({"info":"a:b"})");
  EXPECT_THAT(last_query, HasSubstr(R"("QueryInfos":["it\\em"])"));
  AnswerQueries("INFO_QUERY", R"("QueryInfosRes":["ERROR:unknown"])");
  EXPECT_EQ(Call("info", R"(str:it\em)"), R"(-1: information item 'it\em': unknown)");
  AnswerQueries("INFO_QUERY", R"("QueryInfosRes":[])");
  EXPECT_EQ(Call("info", "str:item"), "-1: information item 'item': no answer");
}

TEST_F(HubTest, ForbiddenCallsAreRefused) {
  Make();
  orvex::Service second;
  second.Offer(1, {1}, "t");
  const auto offer_many = [] {
    orvex::Service crowd;
    for (uint32_t opcode = 1;; ++opcode) {
      crowd.Offer(opcode, {}, "t");
    }
  };
  const auto scalars = [](int8_t, int8_t) {};
  const auto shared = [](int8_t, orvex::Struct) {};
  const auto optional = [](int8_t, std::optional<orvex::Struct>) {};
  const std::initializer_list<int> one = {1}, three = {1, 2, 3}, same = {1, 1};
  EXPECT_THAT([&] { api->On("f", one, scalars); }, IsRefused("2 arguments, but 1 keys are given"));
  EXPECT_THAT([&] { api->On("f", three, scalars); }, IsRefused("but 3 keys are given"));
  EXPECT_THAT([&] { api->On("f", same, shared); }, IsRefused("under the key 1, but a task"));
  EXPECT_THAT([&] { api->On("f", shared); }, IsRefused("under the key 1, but a task has only one"));
  EXPECT_THAT([&] { api->On("f", std::function<void()>()); }, IsRefused("must not be null"));
  EXPECT_THAT([&] { api->On("hold", [] {}); }, IsRefused("there is a function 'hold'"));
  EXPECT_NO_THROW(api->On("same key", same, scalars).On("may be missing", optional));
  EXPECT_THAT([&] { service->Offer(kOpcode, {2}, "t"); }, IsRefused("offered already"));
  EXPECT_THAT([&] { api->Definition(5); }, IsRefused("Api::Definition"));
  EXPECT_THAT([&] { api->Definition(orvd::ParseObject(R"({"opcode":1})")); }, IsRefused("opcode"));
  EXPECT_THAT([] { orvex::Service().Run(); }, IsRefused("nothing is offered"));
  EXPECT_THAT(offer_many, IsRefused("64 opcodes"));
  Start();
  EXPECT_THAT([&] { api->Serial(); }, IsRefused("Api::Serial: call it before Run"));
  EXPECT_THAT([&] { service->Offer(1, {1}, "t"); }, IsRefused("call it before Run"));
  EXPECT_THAT([&] { service->OnBack([] {}); }, IsRefused("call it before Run"));
  EXPECT_THAT([&] { second.Run(); }, IsRefused("a service of this process runs already"));
  EXPECT_EQ(Stop(), 0);
  EXPECT_THAT([&] { service->Run(); }, IsRefused("a service runs once"));
}

TEST_F(HubTest, TasksAreLimitedInOrderAndAwaited) {
  StartSerial(5);
  for (const int task : {1, 2, 3}) {
    Queue(task, task);
  }
  EXPECT_EQ(Call("hold"), "-1: too many tasks run");
  let_go = 1;
  EXPECT_THAT(NextAnswer(), HasSubstr("\"n\":2"));
  Queue(4, 3);
  service->Stop();
  ASSERT_TRUE(WaitLogged("hub: was asked to stop; waits up to 5 s for 3 tasks"));
  EXPECT_EQ(Call("hold"), "-1: the service stops");
  SendSession("end_session", 9, {1});  // the tasks that wait keep its state
  let_go = 4;
  EXPECT_EQ(result.get(), 0);
  EXPECT_EQ(Heard(), "hold/1 go/1 hold/2 end/9/0/1 go/2 hold/3 go/3 hold/4 go/4 ");
  for (const char* message : {"end_session", "exec_task", "exec_task", "exec_task", "DINT"}) {
    EXPECT_EQ(orvd::KindOf(peer.Next().value_or("")), message);
  }
}

// A task runs until its answer is sent.
TEST_F(HubTest, WhatOutlivesTheServiceUsesNothingOfItAndTheNextOneServes) {
  StartSerial(0);
  std::atomic<bool> has_returned{false};
  SetLogHook([&](const string& line) {
    if (line.find("\"transac_id\":1,") != string::npos) {  // before the answer is sent
      has_returned = true;
      Eventually([&] { return let_go >= 2; });
    }
  });
  Queue(1, 1);
  Queue(2, 2);
  let_go = 1;
  ASSERT_TRUE(Eventually([&] { return has_returned.load(); }));
  EXPECT_EQ(Stop(), 0);
  service.reset();
  EXPECT_EQ(CountLogged("hub: 2 tasks still run; the service ends all the same"), 1U);
  let_go = 2;
  EXPECT_TRUE(WaitForThreads(idle_threads));
  EXPECT_EQ(Heard(), "hold/1 go/1 end/9/0/1 ");  // the other task waited for its turn
  EXPECT_EQ(living, 0);
  ClearLog();
  Start(10);  // the library keeps the sessions of before
}

}  // namespace
