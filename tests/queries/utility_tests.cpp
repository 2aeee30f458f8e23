#include <climits>

#include "support/service_fixture.h"

namespace {

constexpr const char* kNoNumber = "Invalid input, no conversion\n";
constexpr const char* kTooLarge = "Invalid input, out of range input\n";

template <typename Number>
struct Row {
  const char* text;
  int code;
  Number value;  // 99: untouched
  const char* line;
};

template <typename Number, size_t N>
void Check(int (*convert)(std::string, Number*), const Row<Number> (&rows)[N]) {
  for (const Row<Number>& row : rows) {
    SCOPED_TRACE(row.text);
    ClearLog();
    Number value = 99;
    EXPECT_EQ(convert(row.text, &value), row.code);
    EXPECT_EQ(value, row.value);
    EXPECT_EQ(LogText(), row.line);
  }
}

TEST(Conversions, NumbersWithTheirRanges) {
  Check<int>(stoi_validation, {{" \t-12abc", 0, -12, ""},
                               {"2147483647", 0, INT_MAX, ""},
                               {"2147483648", -1, 99, kTooLarge},
                               {"0x10", 0, 0, ""},
                               {"", -1, 99, kNoNumber},
                               {"abc", -1, 99, kNoNumber}});
  Check<unsigned>(stoul_validation, {{"4294967295", 0, UINT_MAX, ""},
                                     {"4294967296", 0, 0, ""},
                                     {"-1", 0, UINT_MAX, ""},
                                     {"18446744073709551616", -1, 99, kTooLarge},
                                     {"0x10", 0, 0, ""},
                                     {"-", -1, 99, kNoNumber}});
  Check<unsigned long>(stoull_validation, {{"18446744073709551615", 0, ULONG_MAX, ""},
                                           {"18446744073709551616", -1, 99, kTooLarge},
                                           {"0x10", 0, 0, ""},
                                           {"x", -1, 99, kNoNumber}});
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
