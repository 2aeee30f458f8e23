// Conversions between texts and values, for services. Any thread. They never throw; none of them
// blocks.

#pragma once

#include <string>

#ifndef ORVD_EXPORT
#define ORVD_EXPORT __attribute__((visibility("default")))
#endif

// Decimal text to a number: white space and a sign may lead, what follows the digits is ignored
// ("12abc" is 12). Returns 0 with `*out` set; -1 with `*out` untouched, after one log line that
// says why, always written: for text that begins with no number, and for one out of range.
ORVD_EXPORT int stoi_validation(std::string s, int* out);
// The same for an unsigned number. The text is read as 64 bits wide and cut to 32: "4294967296" is
// 0, "-1" is 4294967295.
ORVD_EXPORT int stoul_validation(std::string s, unsigned* out);
// The same as wide as it is read: "-1" is the largest number.
ORVD_EXPORT int stoull_validation(std::string s, unsigned long* out);

// "true" or "false".
ORVD_EXPORT void orvex_bool_to_string(bool b, std::string* out);
// Exactly "true" or "false", else -1 with `*out` untouched and nothing logged.
ORVD_EXPORT int orvex_string_to_bool(std::string s, bool* out);
