// The list of a task's arguments, written shorter than in JSON.

#pragma once

#include <regex>
#include <string>

// Written with blanks between: ID:TYPE=VALUE, ID:TYPE[]=LIST for a vector, struct(MEMBERS), or
// JSON.
inline std::string JsonArgs(std::string text) {
  const char* const steps[][2] = {
      {R"((-?\d+):(\w*)\[\]=)", R"($1:vector","vec_type":"$2=)"},
      {R"((-?\d+):([^ =]*)=(\S+?)(?=[ )]|$))", R"({"id":$1,"type":"$2","value":$3})"},
      {R"(struct\()", R"({"id":7,"type":"struct","members":[)"},
      {"\\)", "]}"},
      {" ", ","}};
  for (const auto& [from, to] : steps) {
    text = std::regex_replace(text, std::regex(from), to);
  }
  return "[" + text + "]";
}
