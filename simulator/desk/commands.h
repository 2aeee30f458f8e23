// The commands of orvd-sim. Each is in the source file of its name.

#pragma once

namespace orvd {

// Exit codes of all commands.
inline constexpr int kAsExpected = 0;
inline constexpr int kNotAsExpected = 1;
inline constexpr int kCannotRun = 2;  // wrong use, or a file or path that cannot be used

// The words of a command, with the name of the command as the first one. Each function returns the
// exit code. It throws WrongUse or CannotRun for exit code 2.
int RunPlay(int argc, char** argv);
int RunCall(int argc, char** argv);
int RunList(int argc, char** argv);
int RunNotify(int argc, char** argv);
int RunMonitor(int argc, char** argv);
int RunReplay(int argc, char** argv);
int RunScenario(int argc, char** argv);
int RunDiagram(int argc, char** argv);
int RunLoad(int argc, char** argv);

struct Command {
  const char* name;
  const char* summary;  // one line for `orvd-sim --help`
  int (*run)(int argc, char** argv);
};

inline constexpr Command kCommands[] = {
    {"play", "play the Manager's part of a conversation, written in a scenario", RunPlay},
    {"call", "call a function of a service, and print its answer", RunCall},
    {"list", "print what a service has registered and made ready", RunList},
    {"notify", "tell a service that a state, setting or permission has changed", RunNotify},
    {"monitor", "print and record what a service and the Manager send", RunMonitor},
    {"replay", "play the Manager's side of a recording, and compare the service", RunReplay},
    {"scenario", "turn a recording into a scenario for play", RunScenario},
    {"diagram", "draw a recording as a page for the browser, or as Mermaid text", RunDiagram},
    {"load", "keep a service busy, and count what it answers", RunLoad},
};

}  // namespace orvd
