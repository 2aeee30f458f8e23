// What an author can choose about a service.

#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace orvex {

// How a service behaves. Every member has a default. A duration below 0 counts as 0, one above 365
// days as 365 days.
struct Options {
  std::string name = "orvex";  // the layer's log lines begin with it
  // How long one call may wait for the Manager before the process ends; 0: without limit.
  std::chrono::seconds answer_limit{30};
  std::chrono::seconds drain{5};  // how long Run waits for running tasks when it ends
  // The interval of the heartbeat: a query for an information item that finds a lost connection.
  // Only needed to find a reset before the first session or notification; 0: off.
  std::chrono::seconds heartbeat{0};
  std::size_t max_tasks = 0;  // more tasks at a time are answered by a failure; 0: without limit
  bool signals = true;        // SIGTERM and SIGINT stop Run
};

}  // namespace orvex
