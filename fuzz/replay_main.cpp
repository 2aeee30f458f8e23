// Runs a fuzz target on every file of a folder. usage: fuzz_TARGET FOLDER

#include <filesystem>
#include <fstream>
#include <iterator>

#include "harness.h"

int main(int /*argc*/, char** argv) {
  int replayed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    ++replayed;
  }
  printf("%d seeds replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
}
