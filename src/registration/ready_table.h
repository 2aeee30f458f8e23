// The directory of what the service offers: every ready opcode with its callbacks.

#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "link/mutex.h"
#include "orvd_types.h"

// The first three carry the hand-over of the Manager's answer; the rest serves sessions,
// notifications, tasks.
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

// What a user of the table takes with him when he lets go of the mutex.
struct ReadyEntry {
  orvd_state_callback_t state_callback;
  void* user_data;
  orvd_task_function_t task_function;
};

ReadyTable& TheReadyTable();

// An outdated receive thread finds no entry in the next two functions: the opcodes that are ready
// now were made ready for a later initialisation.
std::optional<ReadyEntry> FindReadyEntry(uint32_t opcode);
// The entry with the lowest opcode.
std::optional<std::pair<uint32_t, ReadyEntry>> LowestReadyEntry();
void ClearReadyTable();
// Calls every session-state callback with the ready-table mutex held; none on an outdated receive
// thread.
void NotifyReadyOpcodes(orvd_req_t& notification);
