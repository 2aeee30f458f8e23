// The summary of `orvd-sim load`, and the judgement of a run.

#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "load_engine.h"

namespace orvd {

struct Demands {
  bool check = false;   // no answer may be a failure
  bool strict = false;  // not one more thread or descriptor, and the growth must be known
  double growth = 0;    // percent by which its memory may grow, and more if that is little
};

// What was not as expected; empty if all was.
std::vector<std::string> Problems(const LoadResult& result, const Demands& demands);

// One fact a line.
std::string Summary(const LoadResult& result, const std::vector<std::string>& problems);
Json::Value SummaryJson(const LoadResult& result, const std::vector<std::string>& problems);

}  // namespace orvd
