// Prints what crosses the socket, one line a message, as it happens.

#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include "manager_peer.h"

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
