// Reads the words of a command with getopt_long, and prints the command's help.

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvd {

// The words of a command are wrong. orvd-sim prints the text and the usage line.
class WrongUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A file or a path cannot be used. orvd-sim prints the text.
class CannotRun : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Option {
  const char* name;   // without dashes
  const char* value;  // the word for its value in the help, or nullptr if it has no value
  const char* help;   // one line
  std::function<void(const std::string& value)> take;  // throws WrongUse with the reason
};

// What an option does with its value.
std::function<void(const std::string&)> SetFlag(bool& flag);
std::function<void(const std::string&)> StoreText(std::string& text);
std::function<void(const std::string&)> AddText(std::vector<std::string>& texts);
std::function<void(const std::string&)> StoreOneOf(std::string& text,
                                                   std::initializer_list<const char*> allowed);
// Takes decimal numbers, and hexadecimal ones with "0x", from `least` to `most`.
std::function<void(const std::string&)> StoreNumber(std::int64_t& number, std::int64_t least,
                                                    std::int64_t most);
// --path SOCKET, which every command has that takes the Manager's place.
Option PathOption(std::string& path);

inline constexpr const char* kSocketPath = "/dev/socket/orvd";

// Converts the whole of `text`, decimal or hexadecimal with "0x". Returns nothing if that fails.
std::optional<std::int64_t> ReadNumber(const std::string& text);

struct CommandHelp {
  const char* name;      // of the command
  const char* operands;  // "SCENARIO", "OPCODE FUNCTION [ARGUMENT...]"; empty for none
  const char* about;     // paragraphs, with line breaks, without the last one
  const char* examples;  // command lines, each with the line break
  std::size_t least_operands;
  std::size_t most_operands;
};

// Returns the operands. Returns nothing after it has printed the help, because of --help: the
// command then ends with kAsExpected. Throws WrongUse.
std::optional<std::vector<std::string>> ReadCommandLine(const CommandHelp& help,
                                                        const std::vector<Option>& options,
                                                        int argc, char** argv);

}  // namespace orvd
