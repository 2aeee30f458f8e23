// Decodes the arguments of a task. The debug level is 0: the decoders' log lines are written at
// every level.

#include <json/json.h>

#include <thread>

#include "support/json_args.h"
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
string Decode(const string& text) {
  const bool is_func = text.rfind("func=", 0) == 0;
  Json::Value request;
  Json::Value& func = request["func"];
  std::istringstream(is_func ? text.substr(5) : JsonArgs(text)) >> (is_func ? func : func["args"]);
  if (!is_func) {
    func["num_of_args"] = func["args"].size();
  }
  orvex_func_call_info_t info{};
  string outcome = "throws";
  ClearLog();
  try {
    outcome = to_string(AddParamsToQueues(request, &info));
    EXPECT_EQ(info.num_of_args, func.get("num_of_args", 0).asInt());
  } catch (const Json::LogicError&) {
  }
  outcome += " " + TakeArgs(info.typed_queue, info.value_queue);
  ClearParamsFromQueues(info);
  for (const LogLine& line : Log()) {
    outcome += "\n" + testing::PrintToString(line);
  }
  return outcome;
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
    {"double", "-1.5 3>3.0 18446744073709551615>1.8446744073709552e+19", "", R"(true "1.5")"},
    {"string", R"("a" "" "1" "a\u0000b" "\u00e9")", "", "1 1.5 true"},
    {"boolean", "true false", "", R"(0 1 "true")"},
    {"enum", "-2147483648 2147483647 3.0>3", "", R"(2147483648 -2147483649 1.5 true "3")"},
    {"bnry_blb", R"("QUJD==" "" "a\u0000b")", "", "0 true"},
};

TEST(ArgsTest, EveryTypeOnEveryPath) {
  const string range_words[] = {"for ", "receieved for ", "received for ", "receieved for "};
  const auto expect = [&](int code, int column, const string& json, const string& value) {
    for (const int path : {0, 1, 2, 3}) {
      const string type = kTypes[code - 1][0], line = path == 3 ? "0 0:16={}\n6 " : "-1 null\n6 ";
      const bool list = path % 2 == 1, in_struct = path >= 2;
      const string arg = "1:" + type + (list ? "[]=[" + json + "]" : "=" + json);
      const string read =
          "1:" + (list ? to_string(16 + code) + "=[" + value + "]" : to_string(code) + "=" + value);
      const string outcomes[] = {
          "0 " + (in_struct ? "0:16={" + read + "}" : read),
          line + "Out of range value " + range_words[path] + type,
          line + (list ? "vector type " : "Arg type ") + type + " " + kMismatch};
      EXPECT_EQ(Decode(in_struct ? "struct(" + arg + ")" : arg), outcomes[column - 1]) << arg;
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
  const string uneven = "-1 null\n6 Num of args and size of arg array do not match while parsing";
  const std::pair<const char*, string> rows[] = {
      {"9:int8=5 -4:int8[]=[2,1] 8:enum[]=[] struct()", "0 -4:21=[2,1] 3:16={} 8:28=[] 9:5=5"},
      {"3:int8=5 3:uint8=6 3:int8[]=[7] struct(1:int8=8)", "0 3:5=5"},
      {"struct(1:int8[]=[5] 1:uint8=6 1:string[]=[]) 0:int8=5", "0 0:16={1:21=[5]}"},
      {R"(1:none=5 1:cb=5 struct(2:int8=5) {"type":"int32","value":6})", "0 0:7=6 2:16={2:5=5}"},
      {"1:bool=true 1:bool=true 1:INT8=5 {}", "0 null"},
      {"struct(1:int8=5) struct(1:uint8=-1) 3:int8=5",
       "-1 0:16={1:5=5}\n6 Arg type uint8 " + kMismatch},
      {"1:uint8[]=[1,2,300,-4]", "-1 null\n6 Out of range value receieved for uint8"},
      {"1:vector=[1]", no_type},
      {"1:none[]=[1]", no_type},
      {"1:gadget[]=[1] 2:UINT8[]=[1] 3:cb[]=[1] 4:vector[]=[1] 5:struct[]=[1]", "0 null"},
      {R"({"type":"vector","vec_type":null,"value":[1]})", "0 null"},
      {"struct(1:gadget[]=[1] 2:vector=[1] 3:none[]=[1] 4:int8[]=5)", "0 0:16={4:21=[]}"},
      {"struct(1:int8[]=[1,200] 2:int8[]=[-1,1] 3:int8=5)",
       "0 0:16={2:21=[-1,1] 3:5=5}\n6 Out of range value receieved for int8"},
      {"1:uint8[]=5", "-1 null\n6 Arg type vector " + kMismatch},
      {R"({"type":"struct","members":{"0":1}})",
       "-1 null\n6 No struct members found while parsing"},
      {R"(struct({"type":"struct","members":[{}]} 1:cb=5 1:gadget=5 1:int8=6))", "0 0:16={1:5=6}"},
      {R"(3:int8=5 struct(1:int8[]={"a":1}))", "throws 3:5=5"},
      {R"(struct({"id":1,"value":5} {"type":"int8","value":6} -4:int8=7))",
       "0 0:16={-4:5=7 0:5=6}"},
      {R"(func={"num_of_args":-1})", uneven},
      {R"(func={"num_of_args":1})", uneven},
      {"func=null", "0 null"},
      {R"(func={"name":[]})", "throws null"},
      {R"({"type":[]})", "throws null"},
      {R"(struct({"type":[]}))", "throws null"},
      {R"(func={"num_of_args":2,"args":[{},{},{}]})", uneven},
      {R"(func={"num_of_args":1,"args":{"0":{}}})", "throws null"},
  };
  for (const auto& [args, expected] : rows) {
    EXPECT_EQ(Decode(args), expected) << args;
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
  Json::Value request;
  EXPECT_EQ(AddParamsToQueues(request, &info), 0);
  EXPECT_EQ(info.func_name + TakeArgs(info.typed_queue, info.value_queue), "null");
  EXPECT_EQ(old.typed_queue->at(1).second, first);
  EXPECT_EQ(old.value_queue->at(1), first);
  ClearParamsFromQueues(old);
  EXPECT_EQ(first.use_count(), 1);
}

TEST(ArgsTest, DecodersRunOnSeveralThreads) {
  const auto decode = [] {
    for (int i = 0; i < 500; ++i) {
      const string type = "new" + to_string(i);
      EXPECT_EQ(Decode(R"(func={"num_of_args":1,"args":[{"type":")" + type + "\"}]}"), "0 null");
    }
  };
  std::thread other(decode);
  decode();
  other.join();
}

}  // namespace
