// One run of a mode performs a number of operations with one service and checks all answers. A mode
// is one kind of operation, for example tasks without arguments.

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

struct MeasuredRun {
  Link& link;
  bool decodes;  // the service answers with the number or with the sum of the decoded values
  int operations;
  std::vector<float>* latencies;  // microseconds of each operation; null: not recorded
};

// Tasks of one shape. At most `outstanding` tasks are unanswered at a time. A service that decodes
// answers with `answer`, or with the number of its decoded values if `answer` is empty.
struct Tasks {
  Tasks(Shape shape, int count, int outstanding, const std::string& answer = {});
  Seconds operator()(const MeasuredRun& run) const;

  std::string message;
  std::string result;  // expected from a service that decodes
  int outstanding;
};

// Each operation starts a session with `pairs` pairs, makes it ready and ends it.
Seconds CycleSessions(const MeasuredRun& run, uint32_t pairs);
// Sends notifications. The service's callback acknowledges each one with a message.
Seconds Notify(const MeasuredRun& run);
// Each operation is a query of the service for `items` permissions.
Seconds AnswerQueries(const MeasuredRun& run, uint32_t items);
// In each operation the service registers a new opcode and makes it ready.
Seconds AnswerOffers(const MeasuredRun& run);

}  // namespace bench
