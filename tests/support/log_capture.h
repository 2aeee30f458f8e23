// Records every log line of the library: the test executable defines __android_log_print.

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

// Returns all lines since the last ClearLog.
std::vector<LogLine> Log();
// Returns the texts of these lines, each followed by a line end.
std::string LogText();
void ClearLog();
void AddToLog(const std::string& line);
// Sets a function that is called with each line before it is recorded, on the thread that logs it.
// An empty function removes the hook.
void SetLogHook(std::function<void(const std::string& text)> hook);
size_t CountLogged(const std::string& text);
// Waits until exactly this line has been logged.
bool WaitLogged(const std::string& text);
