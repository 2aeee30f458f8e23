#include <tuple>

#include "support/service_fixture.h"

namespace {

const std::string kNoNumber = "-1 99 Invalid input, no conversion\n";  // 99: untouched
const std::string kTooLarge = "-1 99 Invalid input, out of range input\n";

// Result, value and log.
template <typename Number>
std::string Converted(int (*convert)(std::string, Number*), const char* text) {
  ClearLog();
  Number value = 99;
  const int code = convert(text, &value);
  return std::to_string(code) + " " + std::to_string(value) + " " + LogText();
}

TEST(Conversions, NumbersWithTheirRanges) {
  const std::tuple<char, const char*, std::string> rows[] = {
      {'i', " \t-12abc", "0 -12 "},
      {'i', "2147483647", "0 2147483647 "},
      {'i', "2147483648", kTooLarge},
      {'i', "0x10", "0 0 "},
      {'i', "", kNoNumber},
      {'i', "abc", kNoNumber},
      {'u', "4294967295", "0 4294967295 "},
      {'u', "4294967296", "0 0 "},
      {'u', "-1", "0 4294967295 "},
      {'u', "18446744073709551616", kTooLarge},
      {'u', "0x10", "0 0 "},
      {'l', "0x10", "0 0 "},
      {'u', "-", kNoNumber},
      {'l', "x", kNoNumber},
      {'l', "18446744073709551615", "0 18446744073709551615 "},
      {'l', "18446744073709551616", kTooLarge}};
  for (const auto& [type, text, outcome] : rows) {
    EXPECT_EQ(type == 'i'   ? Converted<int>(stoi_validation, text)
              : type == 'u' ? Converted<unsigned>(stoul_validation, text)
                            : Converted<unsigned long>(stoull_validation, text),
              outcome)
        << text;
  }
}

TEST(Conversions, BooleansAreExactWords) {
  for (const char* text : {"True", "1", " true", "", "falsey"}) {
    bool value = true;
    EXPECT_EQ(orvex_string_to_bool(text, &value), -1) << text;
    EXPECT_TRUE(value) << text;
  }
  for (const bool value : {true, false}) {
    std::string text;
    orvex_bool_to_string(value, &text);
    bool back = !value;
    EXPECT_EQ(orvex_string_to_bool(text, &back), 0) << text;
    EXPECT_EQ(back, value);
  }
  EXPECT_EQ(LogText(), "");
}

}  // namespace
