#include "IOrvdClient_utility.h"

#include <stdexcept>

#include "base/log.h"

using namespace orvd_client;

namespace {

// Converts with a function of the standard library. Logs a line and returns -1 on every failure.
template <typename Number, typename Convert>
int Validate(const std::string& text, Number* out, Convert convert) {
  try {
    *out = static_cast<Number>(convert(text));
    return 0;
  } catch (const std::invalid_argument&) {
    LOG_AT(kEveryLevel, "Invalid input, no conversion");
  } catch (const std::out_of_range&) {
    LOG_AT(kEveryLevel, "Invalid input, out of range input");
  } catch (...) {
    LOG_AT(kEveryLevel, "Invalid input");
  }
  return -1;
}

}  // namespace

int stoi_validation(std::string s, int* out) {
  return Validate(s, out, [](const std::string& text) { return std::stoi(text, nullptr, 10); });
}

// Deliberate: the number is cut to 32 bits without a range check. Services may rely on the results.
int stoul_validation(std::string s, unsigned* out) {
  return Validate(s, out, [](const std::string& text) { return std::stoul(text, nullptr, 10); });
}

int stoull_validation(std::string s, unsigned long* out) {
  return Validate(s, out, [](const std::string& text) { return std::stoull(text, nullptr, 10); });
}

void orvex_bool_to_string(bool b, std::string* out) {
  *out = b ? "true" : "false";
}

int orvex_string_to_bool(std::string s, bool* out) {
  if (s != "true" && s != "false") {
    return -1;
  }
  *out = s == "true";
  return 0;
}
