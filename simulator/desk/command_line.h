// Reads the words of a command with getopt_long, and prints the command's help, its errors and its
// output.

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
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
// Takes numbers from 0 to 0xffffffff: opcodes, sessions, subsystems.
std::function<void(const std::string&)> StoreId(std::optional<std::uint32_t>& id);
// Options that several commands have. `help` tells what is waited for.
Option PathOption(std::string& path);
Option PatienceOption(std::int64_t& seconds, const char* help);

inline constexpr const char* kSocketPath = "/dev/socket/orvd";

// Converts an operand. Throws WrongUse, with `what` in its text.
std::uint32_t ReadUnsigned(const std::string& text, const char* what);
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

// Prints "orvd-sim: " and the text on the standard error output, without control characters.
void Complain(const std::string& text);
// Throws CannotRun if both are the same regular file.
void RefuseSameFile(const std::string& output, const std::string& input);
// Calls `write` with the file, or with the standard output if `output` is empty. `input` is what
// the command reads. Throws CannotRun.
void WriteTo(const std::string& output, const std::string& input,
             const std::function<void(std::ostream&)>& write);

}  // namespace orvd
