#include "support/log_capture.h"

#include <android/log.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <utility>

#include "support/service_fixture.h"

namespace {

// Never destroyed, because task and receive threads log until the process has ended.
std::mutex mutex;
std::vector<LogLine>& lines = *new std::vector<LogLine>;
std::function<void(const std::string&)>& log_hook = *new std::function<void(const std::string&)>;

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
  std::unique_lock lock(mutex);
  if (const auto call = log_hook) {
    lock.unlock();
    call(text);
    lock.lock();
  }
  lines.push_back({prio, text});
  free(text);
  return length;
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.priority << " " << line.text;
}

std::vector<LogLine> Log() {
  const std::lock_guard lock(mutex);
  return lines;
}

std::string LogText() {
  std::string all;
  for (const LogLine& line : Log()) {
    all += line.text + "\n";
  }
  return all;
}

void ClearLog() {
  const std::lock_guard lock(mutex);
  lines.clear();
}

void AddToLog(const std::string& line) {
  __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s", line.c_str());
}

void SetLogHook(std::function<void(const std::string&)> hook) {
  const std::lock_guard lock(mutex);
  log_hook = std::move(hook);
}

size_t CountLogged(const std::string& text) {
  const std::lock_guard lock(mutex);
  const auto is_it = [&text](const LogLine& line) { return line.text == text; };
  return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), is_it));
}

bool WaitLogged(const std::string& text) {
  return Eventually([&text] { return CountLogged(text) != 0; });
}
