#include "load_tasks.h"

#include <fstream>
#include <iterator>
#include <sstream>

#include "command_line.h"
#include "load_arguments.h"
#include "orvex_simulator/messages.h"
#include "orvex_simulator/typed_arguments.h"

namespace orvd {
namespace {

TaskText MakeTask(const std::string& function, const Json::Value& args) {
  return {FunctionMember(function, args), Checksum(ArgumentsText(args))};
}

}  // namespace

std::vector<TaskText> ReadTasks(const std::string& file) {
  std::ifstream input(file);
  std::vector<TaskText> tasks;
  std::string line;
  for (int number = 1; std::getline(input, line); ++number) {
    std::istringstream stream(line);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    if (words.empty() || words.front().front() == '#') {
      continue;
    }
    const std::string function = words.front();
    words.erase(words.begin());
    try {
      tasks.push_back(MakeTask(function, Arguments(words)));
    } catch (const BadArgument& error) {
      throw CannotRun(file + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  if (!input.eof()) {  // a folder
    throw CannotRun(file + ": cannot be read");
  }
  if (tasks.empty()) {
    throw CannotRun(file + ": no task in it");
  }
  return tasks;
}

std::vector<TaskText> GeneratedTasks(const std::vector<std::string>& functions) {
  std::vector<TaskText> tasks;
  for (std::uint32_t seed = 0; seed < kLoadSeeds; ++seed) {
    const Json::Value args = LoadArguments(seed);
    for (const std::string& function : functions) {
      tasks.push_back(MakeTask(function, args));
    }
  }
  return tasks;
}

}  // namespace orvd
