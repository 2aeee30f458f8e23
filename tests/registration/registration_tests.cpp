#include <future>

#include "support/script_test.h"

namespace {

struct RegistrationTest : ScriptTest {
  static int Register(uint32_t opcode, const std::string& blob, const char* token = "t") {
    return _orvd_svc_register_auth(kServiceId, opcode, blob.c_str(), token);
  }
  static int Ready(uint32_t opcode, Recorder& recorder) {
    return _orvd_svc_ready(kServiceId, opcode, Recorder::Callback, &recorder, nullptr);
  }
};
const std::string kDefined =
    "\x02"
    R"({"Orvex":{"opcode":"1000","subsystems":[{"id":7}]}})";

TEST_F(RegistrationTest, LogAtLevelFour) {
  Begin(4);
  EXPECT_EQ(Register(0x1000, "\x01ORVEX\x01{}"), -1);
  EXPECT_EQ(Register(0x1000, "\x01OR\xff{}"), -1);
  EXPECT_EQ(Register(0x1000, "\x02{\"Orvex\":{\"opcode\":\"1001\"}}"), -2);
  EXPECT_EQ(Register(0x1000, "\x02{}"), -2);
  EXPECT_EQ(Register(0x1000, kDefined) + Register(0x1000, kDefined), 0);
  Expect(R"(
ORVEX service register and authenticate|Unsupported API definition (wanted 2; got 123)|ORVEX service register and authenticate|Unsupported API definition (wanted 2; got 255)
ORVEX service register and authenticate|Mismatch opcode in registration 1001 (0x00004096) vs definition (0x00004097)|ORVEX service register and authenticate|Mismatch opcode in registration 0 (0x00004096) vs definition (0x00000000)
ORVEX service register and authenticate
json is {"Orvex":{"opcode":"1000","subsystems":[{"id":7}]}}
{"req_type":"AUTH","Service_Id":7,"Opcode":4096,"api_def":{"Orvex":{"opcode":"1000","subsystems":[{"id":7}]}},"Token":"t"}|Added service 0x00001000::7|Successfully authed and added 0x00001000::7 service mapping|ORVEX service authed and registered
ORVEX service register and authenticate
json is {"Orvex":{"opcode":"1000","subsystems":[{"id":7}]}}
{"req_type":"AUTH","Service_Id":7,"Opcode":4096,"api_def":{"Orvex":{"opcode":"1000","subsystems":[{"id":7}]}},"Token":"t"}|Duplicate service registration 0x00001000::7|Successfully authed and added 0x00001000::7 service mapping|ORVEX service authed and registered)");
}

TEST_F(RegistrationTest, LogAtLevelsOneAndThree) {
  for (const int level : {1, 3}) {
    Begin(level);
    EXPECT_EQ(Register(0x1000, ""), -1);
    for (const std::string json : {"", R"({"Orvex":[]})", R"({"Orvex":{"opcode":[]}})",
                                   R"({"Orvex":{"opcode":"1000","subsystems":5}})",
                                   R"({"Orvex":{"opcode":"1000","subsystems":[{"id":-1}]}})",
                                   R"({"Orvex":{"opcode":"1000","subsystems":[null]}})"}) {
      EXPECT_EQ(Register(0x1000, "\x02" + json), -1) << json;
      Expect("\nParsing of API definition failed!! (opcode 0x00001000)|  JSON failure");
    }
    EXPECT_EQ(Register(0x1000, "\x02" + std::string(1001, '[')), -1);
    EXPECT_NE(LogText().find("JSON failure Exceeded stackLimit"), std::string::npos);
    EXPECT_EQ(Register(0x1000, "\x02{}"), -2);
    EXPECT_EQ(Register(0x1000, kDefined), 0);
    Expect(R"(
Parsing of API definition failed!! (opcode 0x00001000)|  JSON failure
Mismatch opcode in registration 0 (0x00004096) vs definition (0x00000000)
json is {"Orvex":{"opcode":"1000","subsystems":[{"id":7}]}}
{"req_type":"AUTH","Service_Id":7,"Opcode":4096,"api_def":{"Orvex":{"opcode":"1000","subsystems":[{"id":7}]}},"Token":"t"})");
    const std::string longer = kDefined + std::string(250, ' ');
    EXPECT_EQ(Register(0x1000, longer), 0);
    EXPECT_EQ(CountLogged("json is " + longer.substr(1, 250)), 1U);
    EXPECT_EQ(orvd_svc_deinit(kServiceId), 0);
    Recorded();
  }
}

TEST_F(RegistrationTest, RefusedCallsSendNothing) {
  EXPECT_EQ(Register(0x1000, orvd::Definition(0x1000, {})), -3);
  Init();
  EXPECT_EQ(_orvd_svc_register_auth(8, 0x1000, orvd::Definition(0x1000, {}).c_str(), "t"), -2);
  EXPECT_EQ(_orvd_svc_register_auth(kServiceId, 0x1000, nullptr, "t"), -2);
  EXPECT_EQ(Register(0x1000, orvd::Definition(0x1000, {}), nullptr), -2);
  EXPECT_EQ(peer.Next(orvd::Milliseconds(0)), std::nullopt);
}

TEST_F(RegistrationTest, SendsTheDefinitionUnchanged) {
  Init();
  for (const auto& [head, opcode, json] :
       {std::tuple{"\x01ORVEX\x01\x02", 4096U, R"({ "Orvex" : {"opcode":"0x1000"}, "more":[1] })"},
        {"\x02", 4096U, R"({"Orvex":{"opcode":"1000","subsystems":[]}} /* kept */)"},
        {"\x01ORV\x02", 4294967295U, R"({"Orvex":{"opcode":"ffffffff","subsystems":[{"id":3}]}})"},
        {"\x02", 0U, R"({"Orvex":{}})"},
        {"\x02", 0U, R"({"Orvex":null})"},
        {"\x02", 0U, R"({"Orvex":{"opcode":null,"subsystems":null}})"},
        {"\x02", 5U,
         R"({"Orvex":{"opcode":5,"subsystems":[{"id":2.5},{"id":true},{"id":null},{}]}})"}}) {
    EXPECT_EQ(Register(opcode, std::string(head) + json, R"(a\tb)"), 0) << json;
    EXPECT_EQ(peer.NextOf("AUTH"), R"({"req_type":"AUTH","Service_Id":7,"Opcode":)" +
                                       std::to_string(opcode) + R"(,"api_def":)" + json +
                                       R"(,"Token":"a\tb"})");
  }
  EXPECT_TRUE(is_service_supported(4294967295U, 3) && !is_service_supported(4096, 3));
  EXPECT_TRUE(is_service_supported(5, 2) && is_service_supported(5, 1) &&
              is_service_supported(5, 0) && !is_service_supported(0, 0));
}

TEST_F(RegistrationTest, HandlesTheAnswersOfTheManager) {
  Recorder second;
  second.SetHook([](const orvd_req_t&) { ADD_FAILURE() << "a ready opcode keeps its callbacks"; });
  Recorder* used = &recorder;
  Init();
  for (const auto& [members, result] : {std::pair{R"("opcode":"04294967295x","result":0)", 0},
                                        {R"("opcode":"4294967295","result":null)", 0},
                                        {R"("opcode":"-1","result":5)", 0},
                                        {R"("opcode":"4294967295","result":-7)", -1},
                                        {R"("opcode":4294967295)", -1}}) {
    SCOPED_TRACE(members);
    for (const std::string type : {"AUTH", "REDY"}) {
      std::string answer = R"({"req_type":")" + type + "\"," + members + "}";
      peer.SetRule(type, [=](const std::string&) {
        // Three answers that are not for this call.
        peer.Send(R"({"req_type":"REGS","opcode":"4294967295","result":-1})");
        peer.Send(R"({"req_type":")" + type + R"(","result":-1})");
        peer.Send(R"({"req_type":")" + type + R"(","opcode":"4294967294","result":-1})");
        return answer;
      });
    }
    EXPECT_EQ(Register(4294967295U, orvd::Definition(4294967295U, {})), result);
    EXPECT_EQ(Ready(4294967295U, *used), result);
    peer.Send(R"({"req_type":"REDY","opcode":"4294967295","result":-9})");  // no call waits for it
    used = &second;
    EXPECT_EQ(peer.NextOf("REDY"), R"({"req_type":"REDY","Service_Id":7 ,"Opcode":4294967295})");
    const size_t before = Events().size();
    peer.Send(R"({"req_type":"permission_change"})");
    Settle();
    EXPECT_EQ(Events().size() == before, result != 0);
  }
  EXPECT_EQ(CountLogged("ORVEX service auth registration failed."), 2U);
  EXPECT_EQ(CountLogged("Failed to make service ready at manager; aborting"), 2U);
}

TEST_F(RegistrationTest, RegistersAgainAfterAFailedSend) {
  Init();
  EXPECT_EQ(Register(0x10, orvd::Definition(0x10, {1}), std::string(8 << 20, 't').c_str()), -1);
  peer.Send(R"({"req_type":"AUTH","opcode":"16","result":-1})");
  Settle();
  EXPECT_EQ(Register(0x10, orvd::Definition(0x10, {1})), 0);
}

TEST_F(RegistrationTest, LosesNoAnswerOfConcurrentRequests) {
  SetDebugLevel(0);
  Init();
  std::vector<std::future<void>> callers;
  for (uint32_t opcode = 1; opcode <= 4; ++opcode) {
    callers.push_back(std::async(std::launch::async, [this, opcode] {
      for (int round = 0; round < 3000; ++round) {
        EXPECT_EQ(Register(opcode, orvd::Definition(opcode, {opcode})), 0);
        EXPECT_EQ(Ready(opcode, recorder), 0);
      }
    }));
  }
}

}  // namespace
