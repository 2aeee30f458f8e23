// Decodes the arguments of a task. The debug level is 0: the decoders' log lines are written at
// every level.

#include <json/json.h>

#include <thread>

#include "support/args_of.h"
#include "support/service_fixture.h"
#include "support/taken_args.h"

// The member maps of a struct are never freed, on purpose, when it is refused or its key is already
// used.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:AddStructParams\n";
}

namespace {

using std::string, std::to_string;
const string kMismatch = "and type of value do not match while parsing";
using Holder = std::shared_ptr<ValuesInterface>;

// Returns the result, the queues, and the log lines with their priorities.
string DecodeTask(const string& task) {
  Json::Value request = orvd::ParseObject(task);
  orvex_func_call_info_t info{};
  string outcome = "throws";
  ClearLog();
  try {
    outcome = to_string(AddParamsToQueues(request, &info));
    EXPECT_EQ(info.num_of_args, request["func"].get("num_of_args", 0).asInt());
  } catch (const Json::LogicError&) {
  }
  outcome += " " + TakeArgs(info);
  ClearParamsFromQueues(info);
  for (const LogLine& line : Log()) {
    outcome += "\n" + testing::PrintToString(line);
  }
  return outcome;
}

string Decode(const string& words) {
  return DecodeTask(orvd::TaskMessage(1, 1, 1, 1, "f", ArgsOf(words)));
}

// For each type, in the order of the codes: its name, accepted JSON values, values out of range,
// and values of another kind. After > is the decoded value when its text differs.
constexpr const char* kTypes[][4] = {
    {"uint8", "255 0 3.0>3 -0.0>0", "256 4294967295", R"(-1 1.5 4294967296 1e10 true "1")"},
    {"uint16", "65535 256", "65536 4294967295", R"(-1 65535.5 4294967296 false "1")"},
    {"uint32", "4294967295 0 1e3>1000", "", R"(-1 0.5 4294967296 true "1")"},
    {"uint64", "18446744073709551615 0 3.0>3", "", R"(-1 1.5 18446744073709551616 true "1")"},
    {"int8", "-128 127 -1.0>-1", "-129 128 2147483647", R"(-2147483649 2147483648 -1.5 true "1")"},
    {"int16", "-32768 32767", "-32769 32768 -2147483648", R"(2147483648 0.5 4294967296 "1")"},
    {"int32", "-2147483648 2147483647", "", R"(-2147483649 2147483648 4294967296 0.5 false "1")"},
    {"int64", "-9223372036854775808 9223372036854775807 -9223372036854775809>-9223372036854775808",
     "", R"(9223372036854775808 1.5 true "1")"},
    {"double", "-1.5 3 18446744073709551615>18446744073709551616", "", R"(true "1.5")"},
    {"string", R"("a" "" "1" "a\u0000b" "é")", "", "1 1.5 true"},
    {"boolean", "true false", "", R"(0 1 "true")"},
    {"enum", "-2147483648 2147483647 3.0>3", "", R"(2147483648 -2147483649 1.5 true "3")"},
    {"bnry_blb", R"("QUJD==" "" "a\u0000b")", "", "0 true"},
};

TEST(ArgsTest, EveryTypeOnEveryPath) {
  const string range_words[] = {"for ", "receieved for ", "received for ", "receieved for "};
  const auto expect = [&](int code, int column, const string& json, const string& value) {
    // An argument, a vector, a member of a struct, a vector in a struct, which alone is left out.
    for (const int path : {0, 1, 2, 3}) {
      const string type = kTypes[code - 1][0], line = path == 3 ? "0 0:16={}\n6 " : "-1 null\n6 ";
      const bool list = path % 2 == 1, in_struct = path >= 2;
      const string arg = R"({"id":1,"type":")" +
                         (list ? R"(vector","vec_type":")" + type + R"(","value":[)" + json + "]}"
                               : type + R"(","value":)" + json + "}");
      const string read =
          "1:" + (list ? to_string(16 + code) + "=[" + value + "]" : to_string(code) + "=" + value);
      const string outcomes[] = {
          "0 " + (in_struct ? "0:16={" + read + "}" : read),
          line + "Out of range value " + range_words[path] + type,
          line + (list ? "vector type " : "Arg type ") + type + " " + kMismatch};
      const string given = in_struct ? R"({"type":"struct","members":[)" + arg + "]}" : arg;
      EXPECT_EQ(Decode(given), outcomes[column - 1]) << arg;
    }
  };
  for (int code = 1; code <= 13; ++code) {
    for (const int column : {1, 2, 3}) {
      std::istringstream samples(kTypes[code - 1][column] +
                                 string(column == 3 ? " null [] {} [1]" : ""));
      for (string sample; samples >> sample;) {
        expect(code, column, sample.substr(0, sample.find('>')),
               sample.substr(sample.find('>') + 1));
      }
    }
  }
}

TEST(ArgsTest, KeysPositionsAndRefusals) {
  const string no_type = "-1 null\n6 Json tag 'vec_type' is missing";
  const std::pair<const char*, string> rows[] = {
      {"@9=i8:5 @-4=i8[]:2,1 @8=enum[]: struct:[]", "0 -4:21=[2,1] 3:16={} 8:28=[] 9:5=5"},
      {R"(@3=i8:5 @3=u8:6 @3=i8[]:7 struct:["i8:8"])", "0 3:5=5"},
      {R"(struct:["@1=i8[]:5","@1=u8:6","@1=str[]:"] @0=i8:5)", "0 0:16={1:21=[5]}"},
      {R"(none:5 cb:5 struct:["@2=i8:5"] {"type":"int32","value":6})", "0 0:7=6 2:16={2:5=5}"},
      {"BOOL:true INT8:5 {}", "0 null"},
      {R"(struct:["i8:5"] struct:["u8:-1"] i8:5)",
       "-1 0:16={1:5=5}\n6 Arg type uint8 " + kMismatch},
      {"u8[]:1,2,300,-4", "-1 null\n6 Out of range value receieved for uint8"},
      {"vector:[1]", no_type},
      {"none[]:1", no_type},
      {"gadget[]:1 UINT8[]:1 cb[]:1 vector[]:1 struct[]:1", "0 null"},
      {R"({"type":"vector","vec_type":null,"value":[1]})", "0 null"},
      {R"({"type":"vector","vec_type":"int8","value":5})",
       "-1 null\n6 Arg type vector " + kMismatch},
      {R"({"type":"struct","members":{"0":1}})",
       "-1 null\n6 No struct members found while parsing"},
      {R"({"type":"struct","members":[{"type":"vector","vec_type":"int8","value":5}]})",
       "0 0:16={0:21=[]}"},
      {R"(@3=i8:5 {"type":"struct","members":[{"type":"vector","vec_type":"int8","value":{"a":1}}]})",
       "throws 3:5=5"},
      {R"({"type":"struct","members":[{"id":1,"value":5},{"type":"int8","value":6}]})",
       "0 0:16={0:5=6}"},
      {R"(struct:["gadget[]:1","vector:[1]","none[]:1","struct:[\"i8:1\"]","cb:5","@-4=i8:6"])",
       "0 0:16={-4:5=6}"},
      {R"(struct:["i8[]:1,200","i8[]:-1,1","i8:5"])",
       "0 0:16={2:21=[-1,1] 3:5=5}\n6 Out of range value receieved for int8"},
      {R"({"type":[]})", "throws null"},
      {R"({"type":"struct","members":[{"type":[]}]})", "throws null"},
  };
  for (const auto& [args, expected] : rows) {
    EXPECT_EQ(Decode(args), expected) << args;
  }
  const string uneven = "-1 null\n6 Num of args and size of arg array do not match while parsing";
  for (const auto& [func, expected] : {std::pair(R"({"num_of_args":-1})", uneven),
                                       {R"({"num_of_args":1})", uneven},
                                       {R"({"num_of_args":2,"args":[{},{},{}]})", uneven},
                                       {"null", "0 null"},
                                       {R"({"name":[]})", "throws null"},
                                       {R"({"num_of_args":1,"args":{"0":{}}})", "throws null"}}) {
    EXPECT_EQ(DecodeTask(R"({"func":)" + string(func) + "}"), expected) << func;
  }
}

TEST(ArgsTest, QueuesAreFreedOnlyByClear) {
  const Holder first = std::make_shared<ParamValues<int32_t>>(1);
  QueueInsertion(nullptr, 1, first, ORVEX_INT32);
  value_QueueInsertion(nullptr, 1, first);
  orvex_func_call_info_t old{"old", 9, nullptr, nullptr};
  ClearParamsFromQueues(old);
  for (const Holder& holder : {first, Holder()}) {
    QueueInsertion(&old, 1, holder, ORVEX_INT32);
    value_QueueInsertion(&old, 1, holder);
  }
  orvex_func_call_info_t info = old;
  for (const char* refused : {"{}", R"({"vec_type":"int8","value":[true]})"}) {
    Json::Value vector = orvd::ParseObject(refused);
    EXPECT_EQ(AddVectorParams(vector, 0, 1, &old), -1);
    EXPECT_EQ(AddStructVectorParams(vector, 0, 1, old.typed_queue, old.value_queue), -1);
  }
  Json::Value request;
  EXPECT_EQ(AddParamsToQueues(request, &info), 0);
  EXPECT_EQ(info.func_name + TakeArgs(info), "null");
  EXPECT_EQ(old.typed_queue->at(1).second, first);
  EXPECT_EQ(old.value_queue->at(1), first);
  ClearParamsFromQueues(old);
  EXPECT_EQ(first.use_count(), 1);
}

TEST(ArgsTest, DecodersRunOnSeveralThreads) {
  const auto decode = [] {
    for (int i = 0; i < 500; ++i) {
      EXPECT_EQ(Decode("new" + to_string(i)), "0 null");
    }
  };
  std::thread other(decode);
  decode();
  other.join();
}

}  // namespace
