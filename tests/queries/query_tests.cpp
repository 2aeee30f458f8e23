// Permission query, info query, info monitor: both halves, against the peer.

#include <chrono>
#include <thread>

#include "support/service_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string WithId(const std::string& request, const std::string& kind,
                   const std::string& members) {
  const std::string id =
      std::to_string(std::stoul(request.substr(request.find("\"QueryId\":") + 10)));
  return R"({"req_type":")" + kind + R"(","QueryId":)" + id + "," + members + "}";
}

class QueryTest : public ServiceTest {
 protected:
  // Answers queries of a kind with these members beside "QueryId".
  void Answer(const std::string& kind, const std::string& members) {
    peer.SetRule(kind, [=](const std::string& request) { return WithId(request, kind, members); });
  }
  void Start(int level) {
    SetDebugLevel(level);
    Init();
    ClearLog();
  }
};

TEST_F(QueryTest, RequestsShareTheIdAndEachHasItsShape) {
  Start(4);
  Answer("PERMISSION", R"("status":0,"PermRes":["1",0,"-3"])");
  Answer("INFO_QUERY", R"("QueryInfosRes":["SUCCESS:a:b","ERROR:x"])");
  Answer("INFO_MNTR", R"("QueryInfosRes":[])");
  EXPECT_THAT(orvd_permission_query(4294967295, {"a", "b c"}), ElementsAre(true, false, true));
  EXPECT_THAT(orvd_info_query(5, {"i", "j"}), ElementsAre("SUCCESS:a:b", "ERROR:x"));
  EXPECT_THAT(orvd_info_query(5, {}), ElementsAre("ERROR:Empty requested info"));
  EXPECT_THAT(orvd_info_monitor(6, {"k"}), IsEmpty());
  EXPECT_THAT(orvd_permission_query(0, {}), SizeIs(3));
  for (
      const char* request :
      {R"({"req_type":"PERMISSION","Session_Id":4294967295,"service_id":7,"Permissions":["a","b c"],"QueryId":1})",
       R"({"req_type":"INFO_QUERY","Session_Id":5,"QueryId":2,"QueryInfos":["i","j"]})",
       R"({"req_type":"INFO_MNTR","service_id":7,"Session_Id":6,"QueryId":3,"QueryInfos":["k"]})",
       R"({"req_type":"PERMISSION","Session_Id":0,"service_id":7,"Permissions":[],"QueryId":4})"}) {
    EXPECT_EQ(peer.Next(), request);
  }
}

TEST_F(QueryTest, PermissionLinesAreAlwaysWrittenInfoLinesFromThree) {
  for (const int level : {3, 0}) {
    SCOPED_TRACE(level);
    Start(level);
    Answer("PERMISSION", R"("PermRes":[0,1])");
    Answer("INFO_QUERY", R"("QueryInfosRes":["SUCCESS:1"])");
    orvd_permission_query(1, {"p"});
    orvd_info_query(1, {"i"});
    for (const char* line :
         {"permission: p", "Entry orvd_permission_query",
          "waiting for response in orvd_permission_query", "size of permResp array: 2",
          "i = 0, permRes_meta_data response: 0", "i = 1, permRes_meta_data response: 1",
          "Exit orvd_permission_query"}) {
      EXPECT_EQ(CountLogged(line), 1U) << line;
    }
    for (const char* line : {"waiting for response in orvd_info_query", "size of result array: 1",
                             "i = 0, info result: SUCCESS:1", "Exit orvd_info_query"}) {
      EXPECT_EQ(CountLogged(line), level == 3 ? 1U : 0U) << line;
    }
    const std::string log = LogText();
    EXPECT_LT(log.find("permission: p"), log.find("Entry orvd_permission_query"));
    EXPECT_LT(log.find("Entry orvd"), log.find("orvd_permission_query request: {\"req_type\""));
    EXPECT_EQ(log.find("orvd_info_query request: {") != std::string::npos, level == 3);
    ASSERT_EQ(orvd_svc_deinit(kServiceId), 0);
  }
}

TEST_F(QueryTest, WithoutALinkTheFailureHasItsOwnResult) {
  SetDebugLevel(1);
  EXPECT_THAT(orvd_permission_query(1, {"a", "b"}), ElementsAre(false, false));
  EXPECT_THAT(orvd_permission_query(1, {}), ElementsAre(false));
  EXPECT_THAT(orvd_info_query(1, {"a", "b"}), ElementsAre("", ""));
  EXPECT_THAT(orvd_info_query(1, std::vector<std::string>(256)), IsEmpty());
  EXPECT_THAT(orvd_info_monitor(1, std::vector<std::string>(257)), ElementsAre(""));
  EXPECT_NE(LogText().find(R"(,"service_id":-1,)"), std::string::npos);
}

TEST_F(QueryTest, ARefusalIsOneFalse) {
  Start(1);
  Answer("PERMISSION", R"("status":2,"PermRes":["1","1"])");
  EXPECT_THAT(orvd_permission_query(1, {"a", "b"}), ElementsAre(false));
}

// Three seconds for all rows at once: each query waits on a thread of its own.
TEST_F(QueryTest, WhatIsNoAnswerIsDiscardedAndTheQueryEndsByItsTimeOut) {
  Start(1);
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([] { EXPECT_THAT(orvd_permission_query(1, {"a"}), IsEmpty()); });
    threads.emplace_back([] { EXPECT_THAT(orvd_info_monitor(1, {"a"}), IsEmpty()); });
  }
  for (const char* id : {"0", "-1", "\"1\"", "1.5", "77"}) {
    peer.Send(std::string(R"({"req_type":"PERMISSION","status":0,"PermRes":["1"],"QueryId":)") +
              id + "}");
    peer.Send(std::string(R"({"req_type":"INFO_MNTR","QueryInfosRes":["x"],"QueryId":)") + id +
              "}");
  }
  Settle();
  EXPECT_EQ(CountLogged("Discard PERMISSION result due to invalid query_id id"), 4U);
  EXPECT_EQ(CountLogged("Discard INFO_MNTR result due to invalid query_id id"), 4U);
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  for (int id = 1; id <= 6; ++id) {  // too late: nobody is there
    peer.Send(R"({"req_type":"PERMISSION","status":0,"PermRes":["1"],"QueryId":)" +
              std::to_string(id) + "}");
  }
  Settle();
  EXPECT_EQ(CountLogged("size of permResp array: 1"), 0U);
}

TEST_F(QueryTest, ManyAtOnceGetEachItsOwnAnswerInWhateverOrder) {
  Start(1);
  constexpr int kQueries = 40;
  std::vector<std::string> held_back;  // until all have asked; then answered, the last first
  bool answering = false;
  peer.SetRule("INFO_QUERY", [&](const std::string& request) {
    const size_t name = request.find("[\"") + 2;
    const std::string item = request.substr(name, request.find('"', name) - name);
    held_back.push_back(
        WithId(request, "INFO_QUERY", R"("QueryInfosRes":["SUCCESS:)" + item + "\"]"));
    while (held_back.size() == kQueries || answering) {
      answering = !held_back.empty();
      if (answering) {
        peer.Send(held_back.back());
        held_back.pop_back();
      }
    }
    return std::optional<std::string>();
  });
  std::vector<std::thread> threads;
  threads.reserve(kQueries);
  for (int i = 0; i < kQueries; ++i) {
    threads.emplace_back([item = std::to_string(i)] {
      EXPECT_THAT(orvd_info_query(1, {item}), ElementsAre("SUCCESS:" + item));
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  peer.StopReading();  // returns when the rule has
}

TEST_F(QueryTest, FromACallbackItEndsByItsTimeOutAndTheReceiveThreadGoesOn) {
  Start(1);
  Answer("PERMISSION", R"("status":0,"PermRes":["1"])");
  Offer(0xa001, {1});
  recorder.SetHook([](const orvd_req_t& req) {
    if (req.type == ORVD_SESSION_START) {
      EXPECT_THAT(orvd_permission_query(req.session_id, {"a"}), IsEmpty());
    }
  });
  OpenSession(9, 0xa001, 1);
  EXPECT_EQ(recorder.events(), "start 0x0000a001::1 session 9\nready 0x0000a001::1 session 9\n");
}

TEST(ResultTexts, AreSplitAtTheFirstColon) {
  struct Row {
    const char* result;
    int code;
    const char* out;
  };
  for (const Row& row : {Row{"SUCCESS:42", 0, "42"}, Row{"SUCCESS:a:b", 0, "a:b"},
                         Row{"SUCCESS:", 0, ""}, Row{"ERROR:why", -1, "why"},
                         Row{"OK:1", -1, "Invalid result"}, Row{":x", -1, "Invalid result"},
                         Row{"SUCCESS", -1, "Invalid result"}, Row{"", -1, "Empty result"}}) {
    SCOPED_TRACE(row.result);
    std::string out = "untouched";
    EXPECT_EQ(parse_result_of_query_info(row.result, out), row.code);
    EXPECT_EQ(out, row.out);
  }
  EXPECT_EQ(vector_to_string_with_quotes({}), "");
  EXPECT_EQ(vector_to_string_with_quotes({"a", "", "b\"c"}), R"("a","","b"c")");
}

}  // namespace
