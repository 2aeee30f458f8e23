#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <set>

#include "orvex/object.h"
#include "orvex_simulator/json_text.h"

namespace {

using orvex::Object;
using std::string, std::vector, std::optional;
enum class Tiny : bool { kOn = true };

// The values as JSON texts.
template <typename... T>
string Texts(const T&... values) {
  string texts;
  ((texts += Object{{"", values}}.Members().substr(3) + " "), ...);
  return texts;
}

TEST(LayerObject, ValuesToTexts) {
  const char* null = nullptr;
  const char letters[] = "cd";
  const string json = R"({"a":{},"n":18446744073709551615,"z":[1,-2,0.1,true,null,"\n"]})";
  const Json::Value parsed = orvd::ParseObject(json);
  EXPECT_EQ(Texts(true, false, nullptr, Tiny::kOn, orvex::Enum{-7}), "true false null 1 -7 ");
  EXPECT_EQ(Texts(INT8_MIN, uint8_t{255}, 1L, INT64_MIN), "-128 255 1 -9223372036854775808 ");
  EXPECT_EQ(Texts(UINT64_MAX, parsed), "18446744073709551615 " + json + " ");
  EXPECT_EQ(Texts(string("s"), letters, null, orvex::Blob{"Q="}), R"("s" "cd" null "Q=" )");
  EXPECT_EQ(Texts(vector<bool>{true}, optional<int>(), optional<string>("x")),
            R"([true] null "x" )");
  EXPECT_EQ(Texts(std::set<int>{2, 1}, vector<vector<int>>{{1}, {}}), "[1,2] [[1],[]] ");
  EXPECT_EQ(Texts(Object{{"x", 1}}, vector<Object>{{{"a", "b"}}, {}}),
            R"({"x":1} [{"a":"b"},{}] )");
  const Object braces{{"l", {"a", "b"}}, {"o", {{"y", {{"z", "t"}}}}}, {"e", {}}, {"l", {0}}};
  EXPECT_EQ(braces.Members(), R"("l":[0],"o":{"y":{"z":"t"}},"e":{})");
  EXPECT_EQ(Object(parsed["a"]).Members() + Object(Json::Value()).Members(), "");
}

TEST(LayerObject, SetKeepsThePlace) {
  Object object{{"a", 1}, {"b", "x"}, {"c", 3}};
  object.Set("b", "longer").Set("a", nullptr).Set("d", {{"e", 1}}).Set("c", 4).Set("d", 5);
  EXPECT_EQ(object.Members(), R"("a":null,"b":"longer","c":4,"d":5)");
  const string twice = R"("a":null,"b":{"a":null,"b":"longer","c":4,"d":5},"c":4,"d":5)";
  EXPECT_EQ(object.Set("b", object).Members(), twice);
  EXPECT_THROW(object.Set("c", NAN), orvex::Failure);
  EXPECT_EQ(std::move(object).Members(), twice);
  EXPECT_EQ(object.Set("z", 1).Members(), R"("z":1)");  // NOLINT(bugprone-use-after-move)
}

TEST(LayerObject, TextsOfAnyContent) {
  const string text =
      string("a\"b\\c/d \b\f\n\r\t \0\x01\x1f\x7f ", 19) +
      "\u00e9\u20ac\U0001F600\u07ff\U0010FFFF\ud7ff a\x80z\xff \xc3 \xe2\x82z \xf0\x9f\x98 \xc0\xaf\xc1 "
      "\xe0\x9f\xbf \xed\xa0\x80 \xf0\x8f\xbf\xbf \xf4\x90\x80\x80 \xf5\xc3\xa9 \xe2\x82\" \xe2\x82";
  string expected =  // ? stands for U+FFFD
      R"(a\"b\\c/d \b\f\n\r\t \u0000\u0001\u001f)"
      "\x7f \u00e9\u20ac\U0001F600\u07ff\U0010FFFF\ud7ff a?z? ? ?z ? ??? ??? ??? ???? ???? ?\u00e9 ?\\\" ?";
  for (size_t at = 0; (at = expected.find('?')) != string::npos;) {
    expected.replace(at, 1, "\ufffd");
  }
  EXPECT_EQ((Object{{text, text}}.Members()), "\"" + expected + "\":\"" + expected + "\"");
}

TEST(LayerObject, DoublesAreShortest) {
  const vector<double> numbers = {21.5,      3,       0.0,
                                  -0.0,      -1e22,   123456789012,
                                  0.1 + 0.2, 1.0 / 3, 9007199254740992,
                                  DBL_MAX,   5e-324,  18446744073709551616.0};
  EXPECT_EQ(
      Texts(numbers, 0.1F, 3.4028235e38F),
      R"([21.5,3,0,-0.0,-1e+22,123456789012,0.30000000000000004,0.3333333333333333,)"
      R"(9007199254740992,1.7976931348623157e+308,5e-324,18446744073709551616] 0.1 3.4028235e+38 )");
  for (const double number : numbers) {
    string printed;
    orvex::detail::PrintNumber(printed, number);
    EXPECT_EQ(std::strtod(printed.c_str(), nullptr), number) << printed;
  }
}

TEST(LayerObject, WhatJsonCannotExpress) {
  EXPECT_THROW(Texts(INFINITY), orvex::Failure);
  EXPECT_THROW(Texts(vector<double>{-DBL_MAX, -INFINITY}), orvex::Failure);
  EXPECT_THROW(Texts(vector<double>{1, NAN}), orvex::Failure);
  EXPECT_THROW(Texts(Json::Value(NAN)), orvex::Failure);
  EXPECT_THROW(Object{Json::Value("a")}, orvex::Failure);
}

}  // namespace
