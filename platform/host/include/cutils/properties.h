// The part of the platform's <cutils/properties.h> that the library calls, for hosts that have no
// libcutils.

#pragma once

#include <cstdint>

extern "C" {

// The property as a number, its base told by its prefix; `default_value` when it is unset, no
// number, or out of range.
int32_t property_get_int32(const char* key, int32_t default_value);
}
