// The library's log. Every line goes to the Android log with a null tag.

#pragma once

#include <android/log.h>

#include <atomic>

namespace orvd_client {

// The lowest debug level at which a line is written.
enum LogLevel : int {
  kEveryLevel = 0,
  kFailure = 1,
  kWarning = 2,
  kDetail = 3,
  kProgress = 4,
};

extern std::atomic<int> gDebugLevel;

inline bool IsLogged(LogLevel level) {
  return level == kEveryLevel || gDebugLevel >= level;
}

// Returns the text of an error number.
const char* ErrorText(int error);

}  // namespace orvd_client

// Evaluates the arguments only if the line is written.
#define LOG_AT(level, ...)                                          \
  do {                                                              \
    if (orvd_client::IsLogged(orvd_client::level)) {                \
      __android_log_print(ANDROID_LOG_ERROR, nullptr, __VA_ARGS__); \
    }                                                               \
  } while (0)

#define LOG_INFO(...) __android_log_print(ANDROID_LOG_INFO, nullptr, __VA_ARGS__)
