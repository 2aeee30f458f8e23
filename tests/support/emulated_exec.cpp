// gtest starts the process of a death test by executing this program again. The kernel cannot
// execute a program of another processor, so the emulator must run that process too.

#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#ifndef ORVEX_EMULATOR  // the emulator's command; clang-tidy reads this file without it
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
