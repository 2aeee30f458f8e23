// Declares the function of the platform's <cutils/properties.h> that the library calls, for hosts
// that have no libcutils.

#pragma once

#include <cstdint>

extern "C" {

// Returns the property as a number: decimal, octal ("0...") or hexadecimal ("0x..."). Returns
// `default_value` if the property is unset, is not a number or is out of range.
int32_t property_get_int32(const char* key, int32_t default_value);
}
