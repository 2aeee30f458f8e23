#include "registration/ready_table.h"

#include "base/never_destroyed.h"
#include "link/generation.h"
#include "link/service_id.h"

namespace orvd_client {

namespace {

ReadyEntry EntryOf(const ready_meta_data& record) {
  return {record.state_callback, record.user_data, record.task_function};
}

}  // namespace

ReadyTable& TheReadyTable() {
  return NeverDestroyed<ReadyTable>();
}

std::optional<ReadyEntry> FindReadyEntry(uint32_t opcode) {
  const MutexLock lock(TheReadyTable().mutex);
  const auto found = TheReadyTable().opcodes.find(opcode);
  if (found == TheReadyTable().opcodes.end() || ThisThreadIsOutdated()) {
    return std::nullopt;
  }
  return EntryOf(found->second);
}

std::optional<std::pair<uint32_t, ReadyEntry>> LowestReadyEntry() {
  const MutexLock lock(TheReadyTable().mutex);
  if (TheReadyTable().opcodes.empty() || ThisThreadIsOutdated()) {
    return std::nullopt;
  }
  const auto& [opcode, record] = *TheReadyTable().opcodes.begin();
  return std::make_pair(opcode, EntryOf(record));
}

void ClearReadyTable() {
  const MutexLock lock(TheReadyTable().mutex);
  TheReadyTable().opcodes.clear();
}

void NotifyReadyOpcodes(orvd_req_t& notification) {
  const int service_id = ServiceId();
  const MutexLock lock(TheReadyTable().mutex);
  if (ThisThreadIsOutdated()) {
    return;
  }
  for (const auto& [opcode, entry] : TheReadyTable().opcodes) {
    if (entry.state_callback != nullptr) {
      entry.state_callback(service_id, &notification, entry.user_data);
    }
  }
}

}  // namespace orvd_client
