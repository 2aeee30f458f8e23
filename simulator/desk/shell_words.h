// Splits a line into words as a shell does, and reads lines from a descriptor until a signal comes.

#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "stop_signals.h"

namespace orvd {

// Words are separated by blanks. 'TEXT' is taken as it is; in "TEXT" a backslash keeps a quotation
// mark or a backslash, outside of quotes it keeps any character. A word that begins with # begins a
// comment. Throws std::invalid_argument for a quote that does not end.
std::vector<std::string> ShellWords(const std::string& line);

class LineReader {
 public:
  LineReader(int fd, const StopSignals& signals) : fd_(fd), signals_(signals) {}
  // The next line without its end. Nothing at the end of the input and after a signal. Throws
  // std::system_error if the input cannot be read.
  std::optional<std::string> Next();

 private:
  bool ReadMore();

  const int fd_;
  const StopSignals& signals_;
  std::string buffer_;
  bool ended_ = false;
};

}  // namespace orvd
