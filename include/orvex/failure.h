// The exception by which a handler answers that it failed.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace orvex {

// A handler throws this to answer the task with a failure. The text goes to the log. The code
// becomes the "return" member of the answer.
class Failure : public std::runtime_error {
 public:
  // `code` is the "return" member of the answer.
  explicit Failure(const std::string& text, int32_t code = -1)
      : std::runtime_error(text), code_(code) {}

  // The "return" member of the answer.
  int32_t code() const noexcept { return code_; }

 private:
  int32_t code_;
};

}  // namespace orvex
