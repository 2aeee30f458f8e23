// The log as a table can state it: each line behind "@" and the debug level that opens its gate.
#pragma once

#include <sstream>

#include "support/log_capture.h"

inline std::string OpenAt(int level, const std::string& gated) {
  std::string open;
  std::istringstream lines(gated);
  for (std::string line; std::getline(lines, line);) {
    open += line[1] - '0' > level ? "" : line.substr(3) + "\n";
  }
  return open;
}

// The lines so far, cut before numbers and texts of the system. Without those that the receive
// thread writes between two messages: they fall anywhere.
inline std::string StableLog() {
  std::string stable;
  for (const auto& [priority, text] : Log()) {
    const bool between = text.find("Waiting for") == 0 || text.find("recv_msg_from") == 0;
    const size_t cut = std::min(text.find("_fd "), text.find(" failure "));
    stable += between || priority != 6 ? "" : text.substr(0, cut) + "\n";
  }
  return stable;
}
