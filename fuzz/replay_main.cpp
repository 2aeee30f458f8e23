// Runs a fuzz target on every file of the folders named.

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "harness.h"

int main(int argc, char** argv) {
  int replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string text(std::istreambuf_iterator<char>(file), {});
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(text.data()), text.size());
      ++replayed;
    }
  }
  std::cout << replayed << " seeds replayed\n";
  return replayed > 0 ? 0 : 1;
}
