// Conversions between texts and values.

#include "support/service_fixture.h"

namespace {

const std::string kNoNumber = "-1 99 Invalid input, no conversion\n";  // 99: unchanged
const std::string kTooLarge = "-1 99 Invalid input, out of range input\n";

using testing::ElementsAre;

// For each text: result, value and log.
template <typename Number>
std::vector<std::string> Converted(int (*convert)(std::string, Number*),
                                   std::initializer_list<const char*> texts) {
  std::vector<std::string> outcomes;
  for (const char* text : texts) {
    ClearLog();
    auto value = static_cast<Number>(99);
    const int code = convert(text, &value);
    outcomes.push_back(std::to_string(code) + " " + std::to_string(value) + " " + LogText());
  }
  return outcomes;
}

TEST(Conversions, NumbersWithTheirRanges) {
  EXPECT_THAT(
      Converted(stoi_validation, {" \t-12abc", "2147483647", "2147483648", "0x10", "", "abc"}),
      ElementsAre("0 -12 ", "0 2147483647 ", kTooLarge, "0 0 ", kNoNumber, kNoNumber));
  EXPECT_THAT(Converted(stoul_validation,
                        {"4294967295", "4294967296", "-1", "18446744073709551616", "0x10", "-"}),
              ElementsAre("0 4294967295 ", "0 0 ", "0 4294967295 ", kTooLarge, "0 0 ", kNoNumber));
  EXPECT_THAT(
      Converted(stoull_validation, {"0x10", "x", "18446744073709551615", "18446744073709551616"}),
      ElementsAre("0 0 ", kNoNumber, "0 18446744073709551615 ", kTooLarge));
}

TEST(Conversions, BooleansAreExactlyTrueOrFalse) {
  EXPECT_THAT(Converted(orvex_string_to_bool, {"false", "True", "1", " true", "", "falsey"}),
              ElementsAre("0 0 ", "-1 1 ", "-1 1 ", "-1 1 ", "-1 1 ", "-1 1 "));
  bool value = false;
  EXPECT_TRUE(orvex_string_to_bool("true", &value) == 0 && value);
  std::string texts[2];
  orvex_bool_to_string(false, &texts[0]);
  orvex_bool_to_string(true, &texts[1]);
  EXPECT_THAT(texts, ElementsAre("false", "true"));
}

}  // namespace
