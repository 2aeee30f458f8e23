// The simulated Manager and the typed arguments, against the library in the same process.

#include <json/writer.h>

#include "orvex_simulator/json_text.h"
#include "orvex_simulator/messages.h"
#include "orvex_simulator/simulated_manager.h"
#include "support/service_fixture.h"
#include "support/taken_args.h"

// A refused task frees neither its call record nor the members of its structs, on purpose.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:NewCallRecord\nleak:AddStructParams\n";
}

namespace {

using orvd::Check;
using orvd::ManagerError;
using orvd::Milliseconds;
using testing::AllOf, testing::HasSubstr, testing::StartsWith;

constexpr uint32_t kOpcode = 0x10;

// "echo" answers with KEY:CODE=VALUE for each argument.
int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  const std::string queued = Json::valueToQuotedString(TakeArgs(args).c_str());
  call->result = args.func_name == "echo"     ? R"("queued":)" + queued
                 : args.func_name == "broken" ? R"("a":"b"c")"
                                              : "-1";
  return 0;
}

class SimulatedManagerTest : public testing::Test {
 public:
  ~SimulatedManagerTest() override { orvd_svc_deinit(kServiceId); }

 protected:
  static void Offer() {
    ASSERT_EQ(orvd_svc_init(), kServiceId);
    ASSERT_EQ(ServiceTest::Register(kOpcode, {2, 1}), 0);
    ASSERT_EQ(ServiceTest::Ready(kOpcode, RunTask), 0);
  }
  static std::string Queued(const orvd::Answer& answer) { return answer.func["queued"].asString(); }

  orvd::SimulatedManager manager{{kSharedPath, kServiceId, Milliseconds(3000)}};
};

auto Fails(const char* why) {
  return testing::ThrowsMessage<ManagerError>(HasSubstr(why));
}

TEST_F(SimulatedManagerTest, PassesEachType) {
  const std::vector<std::pair<std::string, std::string>> rows{
      {"uint8:0x1f", "1:1=31"},
      {"u64:18446744073709551615", "1:4=18446744073709551615"},
      {"i64:-9223372036854775808", "1:8=-9223372036854775808"},
      {"str:a:\"b\" ,", R"(1:10="a:\"b\" ,")"},
      {"i64[]:[-1,9223372036854775807]", "1:24=[-1,9223372036854775807]"},
      {"str[]:a,,b", R"(1:26=["a","","b"])"},
      {R"(str[]:["a,b","c"])", R"(1:26=["a,b","c"])"},
      {"boolean[]:true,false", "1:27=[true,false]"},
      {R"(struct:["str:x","f64[]:1.5,2","@9=u8:1"])", R"(0:16={1:10="x" 2:25=[1.5,2] 9:1=1})"},
      {R"(struct:{"10":"u8:1","2":"str:x,y"})", R"(0:16={2:10="x,y" 10:1=1})"},
  };
  Offer();
  orvd::ManagedSession session = manager.OpenSession(kOpcode);
  for (const auto& [text, queued] : rows) {
    EXPECT_EQ(Queued(session.Call("echo", {text})), queued) << text;
  }
  EXPECT_EQ(Queued(session.Call("echo", {"struct:[]", "u8:5", "str:x"})),
            R"(0:16={} 2:1=5 3:10="x")");
}

std::string Refusal(const std::vector<std::string>& words) {
  try {
    orvd::Arguments(words);
  } catch (const orvd::BadArgument& refusal) {
    return refusal.what();
  }
  return "none";
}

TEST(TypedArgumentsTest, AreRefusedByName) {
  const std::vector<std::pair<std::string, std::string>> rows{
      {"u8:256", "'u8:256': expected uint8, a whole number from 0 to 255, got '256'"},
      {"u8:1.5", "got '1.5'"},
      {"u8", "'u8': expected uint8:VALUE"},
      {"u64:18446744073709551616", "from 0 to 18446744073709551615"},
      {"i64:-9223372036854775809", "from -9223372036854775808 to 9223372036854775807"},
      {"f64:nan", "expected double, a number"},
      {"bool:1", "expected boolean, true or false"},
      {"u128:1", "expected TYPE:VALUE with one of the types u8, u16"},
      {"cb[]:1", "expected a vector of a type that has values, got 'cb'"},
      {"u8[]:1,,2", "got ''"},
      {"str[]:[1]", "expected string, a text in quotation marks, got '1'"},
      {"str[]:[\"a\"", "expected a JSON list"},
      {"struct:u8:5", "expected a JSON list of members, got 'u8:5'"},
      {"struct:[5]", "expected \"TYPE:VALUE\" as a member, got '5'"},
      {R"(struct:["u8:x"])", "member 'u8:x': expected uint8"},
      {R"(struct:["struct:[]"])", "expected a member that is no struct"},
      {R"(struct:{"x":"u8:1"})", "expected @ID=TYPE:VALUE with a 32-bit number as ID, got 'x'"},
      {R"(struct:["u8:1","@1=u8:2"])", "expected members with different ids"},
      {"@2147483648=u8:1", "a 32-bit number as ID"},
  };
  for (const auto& [text, why] : rows) {
    EXPECT_THAT(Refusal({"u8:1", text}), AllOf(StartsWith("argument 2 '" + text), HasSubstr(why)));
  }
  EXPECT_THAT(Refusal({"u8:1", "struct:[]"}), HasSubstr("key 1 like argument 1"));
}

TEST_F(SimulatedManagerTest, SendsUncheckedArguments) {
  Offer();
  orvd::ManagedSession session = manager.OpenSession(kOpcode);
  for (const char* text : {"u8:256", "u8:x", "bool:1", "u8[]:1,x", "f64[]:[true]"}) {
    const int task = session.SendArgs("echo", orvd::Arguments({text}, Check::kNone));
    manager.Settle();  // the library has refused the task by then
    EXPECT_THAT([&] { session.Await(task, Milliseconds(1)); }, Fails("the library refuses"))
        << text;
  }
  const Json::Value args = orvd::Arguments({"u128:1", "u8:1", "struct:[]"}, Check::kNone);
  EXPECT_EQ(Queued(session.Await(session.SendArgs("echo", args))), "2:1=1");
}

TEST_F(SimulatedManagerTest, KnowsWhatIsRegistered) {
  EXPECT_TRUE(manager.registered().empty());
  ASSERT_EQ(orvd_svc_init(), kServiceId);
  ASSERT_EQ(ServiceTest::Register(kOpcode, {2, 1}), 0);
  ASSERT_EQ(manager.registered().size(), 1U);
  EXPECT_FALSE(manager.registered()[0].ready);
  ASSERT_EQ(ServiceTest::Ready(kOpcode, RunTask), 0);
  const auto apis = manager.WaitSettled(Milliseconds(0));
  ASSERT_TRUE(apis.size() == 1 && apis[0].ready);
  EXPECT_EQ(apis[0].subsystems, (std::vector<uint32_t>{2, 1}));
  EXPECT_EQ(apis[0].definition["Orvex"]["opcode"], "0x00000010");
  EXPECT_EQ(manager.OpenSession(kOpcode).subsystems(), std::vector<uint32_t>{2});
  orvd_svc_deinit(kServiceId);
  EXPECT_TRUE(Eventually([&] { return manager.registered().empty(); }));
}

TEST_F(SimulatedManagerTest, NotifiesInOrder) {
  Offer();
  orvd::ManagedSession session = manager.OpenSession(kOpcode);
  manager.Settle();
  ClearLog();
  session.NotifyState("scr\"een", "on", "p");
  session.NotifySetting("language", "en");
  session.NotifyPermission("camera", true);
  session.NotifyPermission("camera", false, "p");
  manager.Settle();
  EXPECT_EQ(Events(),
            "state_change session 1 state scr\"een:on package p\n"
            "setting_change session 1 state language:en\n"
            "permission_change session 1 permission camera status 1\n"
            "permission_change session 1 permission camera package p\n");
  session.End();
  session.End();
  EXPECT_THAT([&] { session.Call("echo"); }, Fails("session 1 has ended"));
}

TEST_F(SimulatedManagerTest, NamesWhatWentWrong) {
  EXPECT_THAT([&] { manager.Send("{}"); }, Fails("no service takes the message {}"));
  Offer();
  orvd::ManagedSession session = manager.OpenSession(kOpcode);
  EXPECT_FALSE(session.Call("fail").ok());
  EXPECT_THAT([&] { session.Await(session.Send("broken"), Milliseconds(1000)); },
              Fails(R"(is not JSON: {"opcode":)"));
  EXPECT_THAT([&] { session.Await(77); }, Fails("task 77 is not awaited"));
  EXPECT_EQ(manager.unexpected_answers(), 0U);
  manager.Send(orvd::TaskMessage(session.id(), kOpcode, 2, 500, "echo", Json::arrayValue));
  EXPECT_TRUE(Eventually([&] { return manager.unexpected_answers() == 1; }));
}

TEST_F(SimulatedManagerTest, ForgetsTheLastConnection) {
  Offer();
  orvd::ManagedSession session = manager.OpenSession(kOpcode);
  manager.peer().HangUp();
  ASSERT_TRUE(WaitLogged("> reconnected 0x00000010::0"));
  ASSERT_TRUE(manager.peer().WaitConnections(2));
  EXPECT_TRUE(manager.registered().empty());  // the library has connected, but registered nothing
  EXPECT_FALSE(session.is_open());
  EXPECT_THAT([&] { session.Call("echo"); }, Fails("session 1 has ended with its connection"));
}

}  // namespace
