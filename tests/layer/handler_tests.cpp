// What handlers take and answer, and how each failure is answered.

#include <regex>

#include "layer/hub_test.h"
#include "support/taken_args.h"

namespace {

using orvex::Arguments, orvex::Object, orvex::Struct;
using std::optional, std::string, std::vector, testing::HasSubstr;
enum class Small : uint8_t { kOne = 1 };
enum class Wide : uint64_t {};
enum Signed : int32_t { kMinusTwo = -2 };

// A function that takes a value and a vector of T, as arguments or as members of a struct.
template <typename T>
void OfferType(orvex::Api& api, const string& function) {
  api.On(function, [](const Arguments& all, optional<Struct> members) {
    const Arguments& from = members ? *members : all;
    return Object{{"value", from.Get<T>(1)}, {"list", from.Get<vector<T>>(2)}};
  });
}

string Replaced(const string& text, const char* what, const string& by) {
  return std::regex_replace(text, std::regex(what), by);
}
string Fill(const string& text, const string& type, const string& value) {
  const string filled = Replaced(Replaced(text, "TYPE", type), "VALUE", value);
  return Replaced(filled, "OTHER", type == "string" ? "bnry_blb" : "string");
}

TEST_F(HubTest, EachTypePresentMissingAndOfAnotherType) {
  const std::tuple<decltype(&OfferType<bool>), string, string> types[] = {
      {OfferType<uint8_t>, "uint8", "255"},
      {OfferType<uint16_t>, "uint16", "65535"},
      {OfferType<uint32_t>, "uint32", "4294967295"},
      {OfferType<uint64_t>, "uint64", "18446744073709551615"},
      {OfferType<int8_t>, "int8", "-128"},
      {OfferType<int16_t>, "int16", "-32768"},
      {OfferType<int32_t>, "int32", "-2147483648"},
      {OfferType<int64_t>, "int64", "-9223372036854775808"},
      {OfferType<double>, "double", "-1.5"},
      {OfferType<string>, "string", R"("a\u0000b")"},
      {OfferType<bool>, "boolean", "true"},
      {OfferType<orvex::Enum>, "enum", "-3"},
      {OfferType<Small>, "enum", "1"},
      {OfferType<Signed>, "enum", "-2"},
      {OfferType<orvex::Blob>, "bnry_blb", R"("QUJD==")"}};
  const string one = R"({"id":1,"type":"TYPE","value":VALUE})";
  const string list = R"({"id":2,"type":"vector","vec_type":"TYPE","value":[VALUE,VALUE]})";
  const std::pair<string, const char*> rows[] = {
      {one + " " + list, R"({"list":[VALUE,VALUE],"value":VALUE})"},
      {list, "-1: argument 1: expected TYPE, missing"},
      {one, "-1: argument 2: expected vector of TYPE, missing"},
      {R"({"id":1,"type":"OTHER","value":"x"})", "-1: argument 1: expected TYPE, given OTHER"},
      {R"({"id":1,"type":"vector","vec_type":"TYPE","value":[]})",
       "-1: argument 1: expected TYPE, given vector of TYPE"},
      {one + R"( {"id":2,"type":"TYPE","value":VALUE})",
       "-1: argument 2: expected vector of TYPE, given TYPE"}};
  Make();
  for (const auto& [offer, type, value] : types) {
    offer(*api, type + value);
  }
  Start();
  for (const auto& [offer, type, value] : types) {
    for (const auto& row : rows) {
      const string args = Fill(row.first, type, value), answer = Fill(row.second, type, value);
      EXPECT_EQ(Call(type + value, args), answer);
      EXPECT_EQ(
          Call(type + value, R"({"type":"struct","members":[)" + Replaced(args, " ", ",") + "]}"),
          Replaced(answer, "argument (.)", "member $1 of struct 0"));
    }
  }
}

Object Sum(int8_t a, const int8_t& b) noexcept {
  return {{"sum", a + b}};
}

struct Functor {
  Object operator()(const orvex::Call& call, int8_t a, const Arguments& all, int8_t b) & {
    Object answer{{"a", a}, {"b", b}, {"function", call.function()}, {"size", all.size()}};
    answer.Set("ids", {call.session(), call.opcode(), call.subsystem()});
    return answer.Set("transaction", call.transaction()).Set("n", call.arguments().size());
  }
};

TEST_F(HubTest, EachTaskIsAnsweredAndEachFailureIsOneLine) {
  Make();
  api->On("function", Sum).On("functor", Functor()).On("nothing", [](int8_t) {});
  api->On("move-only", [n = std::make_unique<int>()]() mutable { return Object{{"n", ++*n}}; });
  api->On("list", [](const Arguments& all) { return Object{{"all", TextOf(all)}}; });
  api->On("optionals", [](optional<int8_t> a, const optional<vector<Small>>& b) {
    return Object{{"a", a}, {"b", b}};
  });
  api->On("structs", [](const Struct& a, Struct b, optional<Struct> c, optional<int8_t> d) {
    return Object{{"a", a.Get<int8_t>(1)}, {"b", b.size()}, {"c", c.has_value()}, {"d", d}};
  });
  api->On("keys", {7, 0, -1}, [](int8_t a, const Struct& b, optional<Struct> c) {
    return Object{{"a", a}, {"b", b.GetOr<int8_t>(1, 9)}, {"c", c.has_value()}};
  });
  api->On("fallback", [](const Arguments& all) {
    return Object{{"has", all.Has(1)}, {"or", all.GetOr<Small>(1, Small::kOne)}};
  });
  api->On("enums", [](optional<Small>, optional<vector<Small>>, optional<Wide>) {});
  api->On("not copied", [](const Arguments& all, const string& a, const vector<double>& b) {
    return Object{{"a", &a == all.Find<string>(1)}, {"b", &b == all.Find<vector<double>>(2)}};
  });
  api->On("fail", [] { throw orvex::Failure("on purpose", 17); });
  api->On("throw", [] { throw std::runtime_error("at random"); });
  api->On("throw number", [] { throw 5; });
  api->On("long", [](uint32_t size) { return Object{{"", string(size, 'x')}}; });
  Start();
  const char* const rows[][3] = {
      {"function", "i8:1 i8:2 i8:3", R"({"sum":3})"},
      {"functor", "i8:5 i8:6",
       R"({"a":5,"b":6,"function":"functor","ids":[9,40961,1],"n":2,"size":2,"transaction":1})"},
      {"nothing", "i8:1", "{}"},
      {"move-only", "", R"({"n":1})"},
      {"list", R"(struct:["@7=blob:Q","@-1=enum:4"] @3=i8:5 @-9=bool[]:true)",
       R"({"all":"-9:27=[true] 0:16={-1:12=4 7:13=\"Q\"} 3:5=5"})"},
      {"list", "", R"({"all":""})"},
      {"optionals", "", R"({"a":null,"b":null})"},
      {"optionals", "i8:0 enum[]:2", R"({"a":0,"b":[2]})"},
      {"optionals", "u8:0", "-1: argument 1: expected int8, given uint8"},
      {"structs", R"(struct:["@1=i8:5"] struct:[] @4=i8:7)", R"({"a":5,"b":0,"c":false,"d":7})"},
      {"structs", R"(struct:["@1=i8:5"] struct:[] struct:[])",
       R"({"a":5,"b":0,"c":true,"d":null})"},
      {"structs", "struct:[] @4=i8:7", "-1: argument 1: expected struct, missing"},
      {"structs", "struct:[] @1=i8:5", "-1: argument 1: expected struct, given int8"},
      {"keys", R"(struct:["@1=i8:5"] @7=i8:1 @-1=i8:1)", R"({"a":1,"b":5,"c":false})"},
      {"fallback", "i8:0", R"({"has":true,"or":1})"},
      {"fallback", "enum:0", R"({"has":true,"or":0})"},
      {"fallback", "enum:256", R"({"has":true,"or":1})"},
      {"enums", "enum:256", "-1: argument 1: the number does not fit into the enumeration"},
      {"enums", "@2=enum[]:-1,1", "-1: argument 2: the number does not fit into the enumeration"},
      {"enums", "@3=enum:-1", "-1: argument 3: the number does not fit into the enumeration"},
      {"not copied", "str:t f64[]:1", R"({"a":true,"b":true})"},
      {"fail", "", "17: on purpose"},
      {"throw", "", "-1: at random"},
      {"throw number", "", "-1: the handler threw an exception of an unknown type"},
      {"no\"ne", "", "-1: there is no such function"}};
  for (const auto& [function, args, answer] : rows) {
    EXPECT_EQ(Call(function, args), answer) << function << " " << args;
  }
  SendTask("no\"ne");
  EXPECT_THAT(NextAnswer(), HasSubstr(R"("opcode":"0x0000a001","name":"no\"ne","subsys_id":"1")"));
  SendTask("function", "i8:1 i8:2", -1);
  EXPECT_EQ(peer.NextOf("").value_or(""), R"({"req_type":"", "Result":"\"sum\":3"})");
  SendTask("fail", "", -1);
  EXPECT_EQ(peer.NextOf("").value_or(""), R"({"req_type":"", "Result":"-1"})");

  const size_t largest = orvex::detail::LargestPacket();
  const string size = std::to_string(largest), fits = std::to_string(largest - 300);
  EXPECT_EQ(Call("long", "u32:" + fits), R"({"":")" + string(largest - 300, 'x') + "\"}");
  EXPECT_THAT(Call("long", "u32:" + size), HasSubstr("bytes, a packet takes " + size));
  EXPECT_EQ(Call(string(largest, 'n')), "-1: there is no such function");  // nor does the name fit
}

// The address sanitizer sees what is freed twice or not at all.
TEST_F(HubTest, FreeStructMembersFreesOnce) {
  Init();
  Offer(kOpcode, {1}, [](_orvex_call_info_t* /*call*/, orvex_func_call_info_t info) {
    orvex::FreeStructMembers(info);
    orvex::FreeStructMembers(info);
    EXPECT_EQ(Arguments(info).Struct(1).size(), 0U);
    return 0;
  });
  OpenSession(9, kOpcode, 1);
  SendTask("f", R"(struct:["str:a"] struct:["i8[]:1,2"] @2=i8:1)");
  EXPECT_THAT(NextAnswer(), HasSubstr("exec_task"));
  orvd_svc_deinit(kServiceId);
}

}  // namespace
