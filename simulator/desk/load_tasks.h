// What `orvd-sim load` sends: the tasks of a file, or functions with generated arguments. All are
// built before the first one is sent.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orvd {

struct TaskText {
  std::string members;    // of "exec_task", behind the ids; each with a comma before it
  std::uint64_t sum = 0;  // Checksum() of generated arguments
};

// One task a line: FUNCTION [ARGUMENT...]. Throws CannotRun.
std::vector<TaskText> ReadTasks(const std::string& file);
// The functions in turn.
std::vector<TaskText> GeneratedTasks(const std::vector<std::string>& functions);

}  // namespace orvd
