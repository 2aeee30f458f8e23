#include <future>

#include "support/gated_log.h"
#include "support/service_fixture.h"

namespace {

using namespace std::string_literals;  // NOLINT(google-build-using-namespace)

class RegistrationTest : public ServiceTest {
 protected:
  static int Register(uint32_t opcode, const std::string& blob, const char* token = "t") {
    return _orvd_svc_register_auth(kServiceId, opcode, blob.c_str(), token);
  }
  static int Ready(uint32_t opcode, Recorder& told) {
    return _orvd_svc_ready(kServiceId, opcode, Recorder::Callback, &told, nullptr);
  }
};

TEST_F(RegistrationTest, RefusesADefinitionAndSendsNothing) {
  const std::string version = "@4 Unsupported API definition (wanted 2; got ";
  const std::string unread = "@1 Parsing of API definition failed!! (opcode 0x00001000)\n@0   JSON";
  const std::string mismatch = "@1 Mismatch opcode in registration ";
  const std::string start = R"({"Orvex":{"opcode":"1000","subsystems":)";
  const std::pair<std::string, std::string> rows[] = {
      {"\x01ORVEX\x01{}", version + "123)\n"},
      {"\x01OR\xff{}", version + "255)\n"},
      {"\x02", unread},
      {"\x02{\"Orvex\":[]}", unread},
      {"\x02{\"Orvex\":{\"opcode\":[]}}", unread},
      {"\x02" + std::string(1001, '['), unread},
      {"\x02" + start + "5}}", unread},
      {"\x02" + start + "[{\"id\":-1}]}}", unread},
      {"\x02" + start + "[null]}}", unread},
      {"\x02{\"Orvex\":{\"opcode\":\"1001\"}}",
       mismatch + "1001 (0x00004096) vs definition (0x00004097)\n"},
      {"\x02{}", mismatch + "0 (0x00004096) vs definition (0x00000000)\n"},
  };
  EXPECT_EQ(Register(0x1000, ApiBlob(0x1000, {})), -3);
  for (const int level : {4, 1, 0}) {
    SetDebugLevel(level);
    Init();
    for (const auto& [blob, lines] : rows) {
      SCOPED_TRACE(blob + " at level " + std::to_string(level));
      ClearLog();
      EXPECT_EQ(Register(0x1000, blob), lines.find(mismatch) == 0 ? -2 : -1);
      EXPECT_EQ(StableLog(), OpenAt(level, "@4 ORVEX service register and authenticate\n" + lines));
    }
    EXPECT_EQ(_orvd_svc_register_auth(8, 0x1000, "\x02{}", "t"), -2);
    EXPECT_EQ(_orvd_svc_register_auth(kServiceId, 0x1000, nullptr, "t"), -2);
    orvd_svc_deinit(kServiceId);
    EXPECT_EQ(peer.NextOf("AUTH", orvd::Milliseconds(0)), std::nullopt);
  }
}

TEST_F(RegistrationTest, SendsTheDefinitionAsItStands) {
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

TEST_F(RegistrationTest, UnderstandsTheAnswersOfTheManager) {
  Recorder second;
  Recorder* told = &recorder;
  Init();
  for (const auto& [members, result] : {std::pair{R"("opcode":"4294967295","result":0)", 0},
                                        {R"("opcode":"-1","result":5)", 0},
                                        {R"("opcode":"4294967295","result":-7)", -1},
                                        {R"("opcode":4294967295)", -1}}) {
    SCOPED_TRACE(members);
    for (const std::string type : {"AUTH", "REDY"}) {
      std::string answer = R"({"req_type":")" + type + "\"," + members + "}";
      peer.SetRule(type, [=](const std::string&) {
        peer.Send(R"({"req_type":"REGS","opcode":"4294967295","result":-1})");
        peer.Send(R"({"req_type":")" + type + R"(","opcode":"4294967294","result":-1})");
        return answer;
      });
    }
    EXPECT_EQ(Register(4294967295U, ApiBlob(4294967295U, {})), result);
    EXPECT_EQ(Ready(4294967295U, *told), result);
    told = &second;  // a ready opcode keeps its callbacks
    EXPECT_EQ(peer.NextOf("REDY"), R"({"req_type":"REDY","Service_Id":7 ,"Opcode":4294967295})");
    recorder.Clear();
    peer.Send(R"({"req_type":"permission_change"})");
    Settle();
    EXPECT_EQ(recorder.events().empty(), result != 0);
  }
  EXPECT_EQ(second.events(), "");
  EXPECT_EQ(CountLogged("ORVEX service auth registration failed."), 2U);
  EXPECT_EQ(CountLogged("Failed to make service ready at manager; aborting"), 2U);
}

TEST_F(RegistrationTest, AdoptsTheRecordThatAFailedSendLeftBehind) {
  Init();
  EXPECT_EQ(Register(0x10, ApiBlob(0x10, {1}), std::string(8 << 20, 't').c_str()), -1);
  peer.Send(R"({"req_type":"AUTH","opcode":"16","result":-1})");
  Settle();
  EXPECT_EQ(Register(0x10, ApiBlob(0x10, {1})), 0);
}

TEST_F(RegistrationTest, LosesNoAnswerInAStormOfRequests) {
  SetDebugLevel(0);
  Init();
  std::vector<std::future<void>> callers;
  for (uint32_t opcode = 1; opcode <= 4; ++opcode) {
    callers.push_back(std::async(std::launch::async, [this, opcode] {
      for (int round = 0; round < 3000; ++round) {
        EXPECT_EQ(Register(opcode, ApiBlob(opcode, {opcode})) + Ready(opcode, recorder), 0);
      }
    }));
  }
}

}  // namespace
