// The arguments of a task, from one text.

#pragma once

#include <json/json.h>

#include <sstream>
#include <string>

#include "orvex_simulator/json_text.h"
#include "orvex_simulator/typed_arguments.h"

// Each word is an argument, in JSON or as orvd::Argument takes it. The ids are 1, 2, 3, ...
inline Json::Value ArgsOf(const std::string& words) {
  Json::Value args = Json::arrayValue;
  std::istringstream stream(words);
  for (std::string word; stream >> word;) {
    const int id = static_cast<int>(args.size()) + 1;
    args.append(word[0] == '{' ? orvd::ParseObject(word)
                               : orvd::Argument(id, word, orvd::Check::kNone));
  }
  return args;
}
