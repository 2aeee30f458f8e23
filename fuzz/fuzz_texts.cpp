// Conversions and splitters, against the C library and against their own inverse.

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "IOrvdClient.h"
#include "harness.h"
#include "link/json_members.h"

namespace {

template <typename Number, typename Wide>
void CheckConversion(const std::string& text, int (*convert)(std::string, Number*),
                     Wide (*reference)(const char*, char**, int), Wide least, Wide most) {
  errno = 0;
  char* end = nullptr;
  const Wide expected = reference(text.c_str(), &end, 10);
  const bool converts = end != text.c_str() && errno == 0 && expected >= least && expected <= most;
  Number number{};
  Require((convert(text, &number) == 0) == converts, "what converts");
  Require(number == (converts ? static_cast<Number>(expected) : Number{}), "the number");
}

void CheckSplitting(const std::string& text) {
  std::string out;
  const int code = parse_result_of_query_info(text, out);
  const bool success = text.rfind("SUCCESS:", 0) == 0;
  Require((code == 0) == success, "success");
  if (success || text.rfind("ERROR:", 0) == 0) {
    Require((success ? "SUCCESS:" : "ERROR:") + out == text, "the parts make the whole");
  } else {
    Require(out == (text.empty() ? "Empty result" : "Invalid result"), "what is wrong");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CheckConversion<int, long>(text, stoi_validation, strtol, INT_MIN, INT_MAX);
  CheckConversion<unsigned, unsigned long>(text, stoul_validation, strtoul, 0, ULONG_MAX);
  CheckConversion<unsigned long, unsigned long long>(text, stoull_validation, strtoull, 0,
                                                     ULLONG_MAX);
  bool truth = true;
  Require((orvex_string_to_bool(text, &truth) == 0) == (text == "true" || text == "false"), "bool");
  Require(truth == (text != "false"), "the truth");
  CheckSplitting(text);
  Require(vector_to_string_with_quotes({text, text}) == "\"" + text + "\",\"" + text + "\"",
          "the list");
  FromHex(text);
  try {
    FromDecimal(text);
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
  return 0;
}
