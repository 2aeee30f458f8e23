// Sees every line that the library logs: the test executable defines __android_log_print itself.

#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

struct LogLine {
  int priority;
  std::string text;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

// All lines since the last ClearLog.
std::vector<LogLine> Log();
// Their texts, one a line.
std::string LogText();
void ClearLog();
// Called with each line before it is recorded, on the thread that logs it. Empty again: no more.
void SetLogHook(std::function<void(const std::string& text)> hook);
size_t CountLogged(const std::string& text);
// Waits until exactly this line has been logged.
bool WaitLogged(const std::string& text);
