// The layer's log lines.

#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace orvex::detail {

// "0x0000a001"
inline std::string OpcodeText(uint32_t opcode) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text = "0x00000000";
  for (std::size_t i = text.size(); opcode != 0; opcode >>= 4U) {
    text[--i] = kDigits[opcode & 15U];
  }
  return text;
}

// A part of a line: a text or a number.
class LogPart {
 public:
  LogPart(std::string_view text) : text_(text) {}    // NOLINT(google-explicit-constructor)
  LogPart(const char* text) : text_(text) {}         // NOLINT(google-explicit-constructor)
  LogPart(const std::string& text) : text_(text) {}  // NOLINT(google-explicit-constructor)
  template <typename Number, typename = std::enable_if_t<std::is_integral_v<Number>>>
  LogPart(Number number)  // NOLINT(google-explicit-constructor)
      : number_(static_cast<int64_t>(number)), is_number_(true) {}

  void AppendTo(std::string& line) const {
    is_number_ ? line.append(std::to_string(number_)) : line.append(text_);
  }

 private:
  std::string_view text_;
  int64_t number_ = 0;
  bool is_number_ = false;
};

// Writes lines to the Android log, with a null tag as the library does. Without __android_log_print
// in the process it writes to stderr. The function is looked up, so that a service does not need to
// link the Android log library. Any thread.
class Log {
 public:
  explicit Log(const std::string& name) : begin_(name + ": ") {}

  // Each writes one line that consists of the parts. Neither throws.
  void Info(std::initializer_list<LogPart> parts) const noexcept { Write(kInfo, parts); }
  void Error(std::initializer_list<LogPart> parts) const noexcept { Write(kError, parts); }

 private:
  using PrintFunction = int (*)(int, const char*, const char*, ...);
  static constexpr int kInfo = 4;  // the Android log's numbers
  static constexpr int kError = 6;

  void Write(int priority, std::initializer_list<LogPart> parts) const noexcept {
    try {
      std::string line = begin_;
      for (const LogPart& part : parts) {
        part.AppendTo(line);
      }
      Print(priority, line);
    } catch (...) {  // no memory for the line
    }
  }

  static void Print(int priority, const std::string& line) {
    static const auto print =
        reinterpret_cast<PrintFunction>(dlsym(RTLD_DEFAULT, "__android_log_print"));
    if (print != nullptr) {
      print(priority, nullptr, "%s", line.c_str());
    } else {
      static_cast<void>(std::fprintf(stderr, "%s\n", line.c_str()));
    }
  }

  std::string begin_;
};

}  // namespace orvex::detail
