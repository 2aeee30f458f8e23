// The ready table: every ready opcode with its callbacks.

#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "base/mutex.h"
#include "orvd_types.h"

namespace orvd_client {

// The first three members hand over the Manager's answer to REDY. Sessions, notifications and tasks
// use the other members.
struct ready_meta_data {
  std::shared_ptr<int32_t> status;
  std::shared_ptr<std::condition_variable> cv;
  std::shared_ptr<bool> received;
  orvd_state_callback_t state_callback = nullptr;
  void* user_data = nullptr;
  orvd_task_function_t task_function = nullptr;
};

struct ReadyTable {
  Mutex mutex;
  std::map<uint32_t, ready_meta_data> opcodes GUARDED_BY(mutex);
};

// A copy of the callbacks, for use without the mutex.
struct ReadyEntry {
  orvd_state_callback_t state_callback;
  void* user_data;
  orvd_task_function_t task_function;
};

ReadyTable& TheReadyTable();

// The next two functions return nothing on an outdated receive thread: the opcodes that are ready
// now belong to a later initialisation.
std::optional<ReadyEntry> FindReadyEntry(uint32_t opcode);
// Returns the entry with the lowest opcode.
std::optional<std::pair<uint32_t, ReadyEntry>> LowestReadyEntry();
void ClearReadyTable();
// Calls every session-state callback in ascending order of the opcodes, with the ready-table mutex
// held. Calls none on an outdated receive thread.
void NotifyReadyOpcodes(orvd_req_t& notification);

}  // namespace orvd_client
