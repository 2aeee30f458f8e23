#include "support/log_capture.h"

#include <android/log.h>

#include <algorithm>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>

namespace {

struct Capture {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<LogLine> lines;
  std::function<void(const std::string&)> hook;

  size_t Count(const std::string& text) const {
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const LogLine& line) { return line.text == text; }));
  }
};

// Task and receive threads log until the process is gone.
Capture& TheCapture() {
  static Capture& capture = *new Capture;
  return capture;
}

void CallHook(const char* text) {
  std::function<void(const std::string&)> hook;
  {
    const std::lock_guard<std::mutex> lock(TheCapture().mutex);
    hook = TheCapture().hook;
  }
  if (hook) {
    hook(text);
  }
}

}  // namespace

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  if (tag != nullptr) {
    std::cerr << "a log line has the tag " << tag << "\n";
    abort();
  }
  char* text = nullptr;
  va_list args;
  va_start(args, fmt);
  const int length = vasprintf(&text, fmt, args);
  va_end(args);
  CallHook(text);
  const std::lock_guard<std::mutex> lock(TheCapture().mutex);
  TheCapture().lines.push_back({prio, text});
  TheCapture().changed.notify_all();
  free(text);
  return length;
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.priority << " " << line.text;
}

std::vector<LogLine> Log() {
  const std::lock_guard<std::mutex> lock(TheCapture().mutex);
  return TheCapture().lines;
}

std::string LogText() {
  std::string all;
  for (const LogLine& line : Log()) {
    all += line.text + "\n";
  }
  return all;
}

void ClearLog() {
  const std::lock_guard<std::mutex> lock(TheCapture().mutex);
  TheCapture().lines.clear();
}

void SetLogHook(std::function<void(const std::string&)> hook) {
  const std::lock_guard<std::mutex> lock(TheCapture().mutex);
  TheCapture().hook = std::move(hook);
}

size_t CountLogged(const std::string& text) {
  const std::lock_guard<std::mutex> lock(TheCapture().mutex);
  return TheCapture().Count(text);
}

bool WaitLogged(const std::string& text, std::chrono::milliseconds limit) {
  std::unique_lock<std::mutex> lock(TheCapture().mutex);
  return TheCapture().changed.wait_for(lock, limit, [&] { return TheCapture().Count(text) != 0; });
}
