// gtest starts a death test's process by executing this program again. The kernel takes no program
// of another processor's: the emulator has to run that one too.

#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#ifndef ORVEX_EMULATOR  // its words; the native build reads this file only to look for mistakes
#define ORVEX_EMULATOR "qemu-aarch64"
#endif

extern "C" int execv(const char* path, char* const argv[]) noexcept {
  std::vector<std::string> words = {ORVEX_EMULATOR, path};
  for (char* const* argument = argv + 1; *argument != nullptr; ++argument) {
    words.emplace_back(*argument);
  }
  std::vector<char*> command(words.size() + 1);  // ends with a null pointer
  std::transform(words.begin(), words.end(), command.begin(),
                 [](std::string& word) { return word.data(); });
  return execvp(command[0], command.data());
}
