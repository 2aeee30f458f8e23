// gtest starts a death test's process by executing this program again. The kernel takes no program
// of another processor's: the emulator has to run that one too.

#include <unistd.h>

#include <string>
#include <vector>

#ifndef ORVEX_EMULATOR  // its words; the native build reads this file only to look for mistakes
#define ORVEX_EMULATOR "qemu-aarch64"
#endif

extern "C" int execv(const char* path, char* const argv[]) noexcept {
  std::vector<std::string> words = {ORVEX_EMULATOR, path};
  std::vector<char*> command;
  for (std::string& word : words) {
    command.push_back(word.data());
  }
  for (char* const* argument = argv + 1; *argument != nullptr; ++argument) {
    command.push_back(*argument);
  }
  command.push_back(nullptr);
  return execvp(command[0], command.data());
}
