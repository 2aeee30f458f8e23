// Prints each message on the socket as one line, when it is sent or received.

#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include "orvex_simulator/manager_peer.h"

namespace orvd {

class Conversation {
 public:
  Conversation(FILE* out, bool color) : out_(out), color_(color) {}

  void Print(const TranscriptEntry& entry);
  void Heading(const std::string& text);
  void Failure(const std::string& text);

 private:
  void Line(const char* color, const std::string& text);

  FILE* const out_;
  const bool color_;
  std::mutex mutex_;
};

}  // namespace orvd
