// Permission query, info query and info monitor: the requests and the answers.

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

#include "support/frozen_clock.h"
#include "support/script_test.h"

namespace {

using testing::ElementsAre, testing::IsEmpty;

class QueryTest : public ServiceTest {
 protected:
  QueryTest() { SetDebugLevel(1); }
  // From now on the peer answers permission queries with the members of the request and these
  // members.
  void Answer(const std::string& members) {
    peer.SetRule("PERMISSION", [end = "," + members + "}"](const std::string& request) {
      return Replace(request, "[}]", end.c_str());
    });
  }
};

struct QueryScript : ScriptTest {
  void AskEach(int level) {
    Begin(level);
    for (const std::string answer :
         {R"({"req_type":"PERMISSION","QueryId":1,"PermRes":["1","0x1","-3"]})",
          R"({"req_type":"INFO_QUERY","QueryId":2,"QueryInfosRes":["SUCCESS:a:b",5]})",
          R"({"req_type":"INFO_MNTR","QueryId":3,"QueryInfosRes":[]})"}) {
      peer.SetRule(orvd::KindOf(answer), [answer](auto) { return std::optional(answer); });
    }
    EXPECT_THAT(orvd_permission_query(UINT32_MAX, {"a", "b c"}), ElementsAre(true, false, true));
    EXPECT_THAT(orvd_info_query(5, {"i", "j"}), ElementsAre("SUCCESS:a:b", "5"));
    std::string reason;
    EXPECT_EQ(parse_result_of_query_info(orvd_info_query(5, {}).at(0), reason), -1);
    EXPECT_THAT(orvd_info_monitor(6, {"k"}), IsEmpty());
  }
};

const std::string kPermissionLines =
    R"(permission: a|permission: b c|Entry orvd_permission_query|orvd_permission_query request: {"req_type":"PERMISSION","Session_Id":4294967295,"service_id":7,"Permissions":["a","b c"],"QueryId":1}
{"req_type":"PERMISSION","Session_Id":4294967295,"service_id":7,"Permissions":["a","b c"],"QueryId":1}
size of permResp array: 3|i = 0, permRes_meta_data response: 1|i = 1, permRes_meta_data response: 0|i = 2, permRes_meta_data response: 1|Exit orvd_permission_query
)";

TEST_F(QueryScript, LogAtLevelZero) {
  AskEach(0);
  Expect("\n" + kPermissionLines +
         R"({"req_type":"INFO_QUERY","Session_Id":5,"QueryId":2,"QueryInfos":["i","j"]}
{"req_type":"INFO_MNTR","service_id":7,"Session_Id":6,"QueryId":3,"QueryInfos":["k"]}|waiting for response in orvd_permission_query)");
}

TEST_F(QueryScript, LogAtLevelThree) {
  AskEach(3);
  Expect(
      "\n" + kPermissionLines +
      R"(orvd_info_query request: {"req_type":"INFO_QUERY","Session_Id":5,"QueryId":2,"QueryInfos":["i","j"]}|{"req_type":"INFO_QUERY","Session_Id":5,"QueryId":2,"QueryInfos":["i","j"]}|size of result array: 2|i = 0, info result: SUCCESS:a:b|i = 1, info result: 5|Exit orvd_info_query
parse_result_of_query_info original result: ERROR:Empty requested info|statue of original result: ERROR|result of original result: Empty requested info
orvd_info_monitor request: {"req_type":"INFO_MNTR","service_id":7,"Session_Id":6,"QueryId":3,"QueryInfos":["k"]}|{"req_type":"INFO_MNTR","service_id":7,"Session_Id":6,"QueryId":3,"QueryInfos":["k"]}
size of result array: 0|Exit orvd_info_monitor|waiting for response in orvd_permission_query|waiting for response in orvd_info_query|waiting for response in orvd_info_monitor)");
}

TEST_F(QueryTest, FailedAndRefusedQueriesHaveDifferentResults) {
  // Without a connection each item has an empty result. The number of items is counted in 8 bits.
  EXPECT_THAT(orvd_permission_query(1, {"a", "b"}), ElementsAre(false, false));
  EXPECT_THAT(orvd_permission_query(1, {}), ElementsAre(false));
  EXPECT_THAT(orvd_info_query(1, {"a", "b"}), ElementsAre("", ""));
  EXPECT_THAT(orvd_info_query(1, std::vector<std::string>(256)), IsEmpty());
  EXPECT_THAT(orvd_info_monitor(1, std::vector<std::string>(257)), ElementsAre(""));
  EXPECT_NE(LogText().find(R"(,"service_id":-1,)"), std::string::npos);
  SetDebugLevel(3);
  Init();
  peer.Send(R"({"req_type":"PERMISSION","QueryId":1,"PermRes":["1"]})");  // that query has ended
  peer.Send(R"({"req_type":"INFO_QUERY","QueryId":3,"QueryInfosRes":["x"]})");
  Settle();
  EXPECT_EQ(LogText().find("size of "), std::string::npos);
  for (const std::string status : {"2", "-1"}) {
    Answer("\"status\":" + status + R"(,"PermRes":["1","1"])");
    EXPECT_THAT(orvd_permission_query(1, {"a", "b"}), ElementsAre(false)) << status;
  }
}

TEST_F(QueryTest, ValuesThatCannotBeConvertedEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const auto& [answer, exception] :
       {std::pair{R"(PERMISSION","QueryId":1,"PermRes":["x"]})", "std::invalid_argument"},
        {R"(PERMISSION","QueryId":1,"PermRes":["4294967296"]})", "std::out_of_range"},
        {R"(PERMISSION","QueryId":1,"status":4294967296})", "Json::LogicError"},
        {R"(state_change","session_id":4294967296})", "Json::LogicError"},
        {R"(AUTH","opcode":"x"})", "std::invalid_argument"}}) {
    const std::string text = std::string(R"({"req_type":")") + answer;
    peer.SetRule("PERMISSION", [text](auto) { return std::optional(text); });
    EXPECT_DEATH((Init(), orvd_permission_query(1, {})), exception);
  }
}

TEST_F(QueryTest, AnswersWithoutItsIdAreDiscardedAndTheQueryEndsAfterThreeSeconds) {
  Init();
  const auto send_both = [this](const std::string& id) {
    peer.Send(R"({"req_type":"PERMISSION","PermRes":["1"],"QueryId":)" + id + "}");
    peer.Send(R"({"req_type":"INFO_MNTR","QueryInfosRes":["x"],"QueryId":)" + id + "}");
  };
  std::thread([&] {
    bool time_is_up = true;
    FreezeClock([&](auto /*length*/) {
      for (const char* id : {"0", "-1", "\"1\"", "\"2\"", "1.5", "2.5", "77"}) {
        send_both(id);
      }
      Settle();
      return time_is_up = !time_is_up;  // after a spurious wake-up
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(orvd_permission_query(1, {"a"}), IsEmpty());
    EXPECT_EQ(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_THAT(orvd_info_monitor(1, {"a"}), IsEmpty());
    EXPECT_EQ(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
  }).join();
  // Six invalid ids, in two waits of each of two queries. Nobody waits for the id 77.
  EXPECT_EQ(CountLogged("Discard PERMISSION result due to invalid query_id id"), 24U);
  EXPECT_EQ(CountLogged("Discard INFO_MNTR result due to invalid query_id id"), 24U);
  send_both("1");  // too late: no query waits
  send_both("2");
  Settle();
  EXPECT_EQ(CountLogged("size of permResp array: 1"), 0U);
}

// The peer answers when all queries have arrived, in reverse order.
TEST_F(QueryTest, ConcurrentQueriesGetTheirOwnAnswersInAnyOrder) {
  Init();
  std::vector<std::string> answers;
  peer.SetRule("INFO_QUERY", [&](const std::string& request) {
    answers.push_back(Replace(request, "QueryInfos", "QueryInfosRes"));
    if (answers.size() == 40) {
      std::for_each(answers.rbegin(), answers.rend(),
                    [this](const auto& text) { peer.Send(text); });
    }
    return std::nullopt;
  });
  std::vector<std::future<void>> callers;
  callers.reserve(40);
  for (int i = 0; i < 40; ++i) {
    callers.push_back(std::async(std::launch::async, [item = std::to_string(i)] {
      FreezeClock([](auto /*length*/) {
        return std::this_thread::sleep_for(orvd::Milliseconds(1)), false;
      });
      EXPECT_THAT(orvd_info_query(1, {item}), ElementsAre(item));
    }));
  }
  callers.clear();     // joins the threads
  peer.StopReading();  // waits for the end of the rule
}

TEST_F(QueryTest, QueryInACallbackTimesOutAndTheReceiveThreadContinues) {
  Init();
  Answer(R"("PermRes":["1"])");
  Offer(0xa001, {1});
  recorder.SetHook([](const orvd_req_t& req) {
    FreezeClock();
    EXPECT_THAT(orvd_permission_query(req.session_id, {"a"}), IsEmpty());
  });
  OpenSession(9, 0xa001, 1);
}

TEST(ResultTexts, AreSplitAtTheFirstColon) {
  const std::pair<const char*, const char*> rows[] = {
      {"SUCCESS:42", "0 42"},           {"SUCCESS:a:b", "0 a:b"},      {"SUCCESS:", "0 "},
      {"ERROR:why", "-1 why"},          {"OK:1", "-1 Invalid result"}, {":x", "-1 Invalid result"},
      {"SUCCESS", "-1 Invalid result"}, {"", "-1 Empty result"}};
  for (const auto& [result, outcome] : rows) {
    std::string out = "untouched";
    const int code = parse_result_of_query_info(result, out);
    EXPECT_EQ(std::to_string(code) + " " + out, outcome) << result;
  }
  EXPECT_EQ(vector_to_string_with_quotes({}), "");
  EXPECT_EQ(vector_to_string_with_quotes({"a", "", "b\"c"}), R"("a","","b"c")");
}

}  // namespace
