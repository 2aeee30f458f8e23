// Every line of the library goes to the Android log here, with no tag.

#pragma once

#include <android/log.h>

#include <atomic>

// The debug level from which a line is written.
enum LogGate : int {
  kAlways,    // whatever the level
  kFailure,   // 1
  kWarning,   // 2
  kDetail,    // 3
  kProgress,  // 4
};

extern std::atomic<int> gDebugLevel;

inline bool LogGateOpen(LogGate gate) {
  return gate == kAlways || gDebugLevel >= gate;
}

// The text of an error number.
const char* ErrorText(int error);

// A closed gate evaluates no argument.
#define LOG_AT(gate, ...)                                           \
  do {                                                              \
    if (LogGateOpen(gate)) {                                        \
      __android_log_print(ANDROID_LOG_ERROR, nullptr, __VA_ARGS__); \
    }                                                               \
  } while (0)

#define LOG_INFO(...) __android_log_print(ANDROID_LOG_INFO, nullptr, __VA_ARGS__)
