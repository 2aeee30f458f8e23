// The commands of orvd-sim. Each is in a source file of its own.

#pragma once

namespace orvd {

// Exit codes of all commands.
inline constexpr int kAsExpected = 0;
inline constexpr int kNotAsExpected = 1;
inline constexpr int kCannotRun = 2;  // wrong use, or a file, path or device that cannot be used

// The words of a command, with the name of the command as the first one. Each function returns the
// exit code. It throws WrongUse or CannotRun for exit code 2.
int RunPlay(int argc, char** argv);

struct Command {
  const char* name;
  const char* summary;  // one line for `orvd-sim --help`
  int (*run)(int argc, char** argv);
};

inline constexpr Command kCommands[] = {
    {"play", "play the Manager's part of a conversation, written in a scenario", RunPlay},
};

}  // namespace orvd
