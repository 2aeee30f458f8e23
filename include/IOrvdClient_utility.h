// Conversions between texts and values, for services. Call them on any thread. They do not block
// and do not throw.

#pragma once

#include <string>

#ifndef ORVD_EXPORT
#define ORVD_EXPORT __attribute__((visibility("default")))
#endif

// Converts decimal text to a number. White space and a sign may precede the digits. Characters
// after the digits are ignored: "12abc" is 12.
//
// Returns 0 or -1:
//
//   0   `*out` is the number
//   -1  the text does not begin with a number, or the number is out of range; `*out` is unchanged
//
// A failure writes one log line, whatever the debug level is.
ORVD_EXPORT int stoi_validation(std::string s, int* out);
// The same for an unsigned number of 32 bits. The text is read as a number of 64 bits, and only its
// low 32 bits are stored: "4294967296" is 0, and "-1" is 4294967295.
ORVD_EXPORT int stoul_validation(std::string s, unsigned* out);
// The same for an unsigned number of 64 bits. "-1" is the largest number.
ORVD_EXPORT int stoull_validation(std::string s, unsigned long* out);

// Sets `*out` to "true" or "false".
ORVD_EXPORT void orvex_bool_to_string(bool b, std::string* out);
// Converts exactly "true" or "false".
//
// Returns 0, or -1 for any other text. `*out` is then unchanged, and nothing is logged.
ORVD_EXPORT int orvex_string_to_bool(std::string s, bool* out);
