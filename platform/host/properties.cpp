#include <android-base/properties.h>
#include <cutils/properties.h>

#include <cerrno>
#include <cinttypes>
#include <limits>
#include <string>

// Weak, so that the function of a linked libcutils takes precedence.
extern "C" __attribute__((weak)) int32_t property_get_int32(const char* key,
                                                            int32_t default_value) {
  const std::string text = android::base::GetProperty(key, "");
  char* end = nullptr;
  const int caller_errno = errno;
  const intmax_t value = strtoimax(text.c_str(), &end, 0);
  errno = caller_errno;
  const bool in_range =
      value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max();
  return end != text.c_str() && in_range ? static_cast<int32_t>(value) : default_value;
}
