// One turn of a mode: so many operations against one service, all answers checked.

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "service_process.h"
#include "task_messages.h"

namespace bench {

using Seconds = std::chrono::duration<double>;

struct Turn {
  Link& link;
  bool decodes;  // whether the service says how much it decoded
  int operations;
  std::vector<float>* latencies;  // in microseconds, of each operation; null when nobody asks
};

// Tasks of one shape, `outstanding` of them on their way at a time.
struct Tasks {
  Tasks(Shape shape, int count, int outstanding);
  Seconds operator()(const Turn& turn) const;

  std::string message;
  std::string result;  // of a service that decodes
  int outstanding;
};

// A session of so many pairs is started, readied and ended.
Seconds CycleSessions(const Turn& turn, uint32_t pairs);
// Each is acknowledged by the callback.
Seconds Notify(const Turn& turn);
// The service asks for so many permissions.
Seconds AnswerQueries(const Turn& turn, uint32_t items);
// The service registers and readies opcodes that it has not had yet.
Seconds AnswerOffers(const Turn& turn);

}  // namespace bench
