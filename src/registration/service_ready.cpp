#include "registration/service_ready.h"

#include <string>

#include "IOrvdClient.h"
#include "link/connection.h"
#include "link/json_members.h"
#include "link/log.h"
#include "link/pending_answer.h"
#include "link/state.h"
#include "registration/ready_table.h"

namespace {

// Guards the hand-over of answers. Not the ready-table mutex, which is held while notifications
// run: a service thread that waits for readiness must not wait for them.
Mutex gReadyAnswerMutex;

std::string ReadyRequest(uint32_t service_id, uint32_t opcode) {
  std::string request = R"({"req_type":"REDY","Service_Id":)";
  request += std::to_string(static_cast<int32_t>(service_id));
  request += R"( ,"Opcode":)";
  request += std::to_string(opcode);
  request += "}";
  return request;
}

// Returns the record that is in the table afterwards: the answer goes to that one. A ready opcode
// keeps its record. Inserts nothing once the generation is over: a deinitialisation clears the
// table after it has ended the generation, so no entry survives it.
std::optional<ready_meta_data> InsertReady(Generation generation, uint32_t opcode,
                                           ready_meta_data record) {
  const MutexLock lock(TheReadyTable().mutex);
  if (CurrentGeneration() != generation) {
    return std::nullopt;
  }
  const ready_meta_data& entry =
      TheReadyTable().opcodes.try_emplace(opcode, std::move(record)).first->second;
  const MutexLock answer_lock(gReadyAnswerMutex);
  if (IsUnattended(entry)) {
    *entry.received = false;
  }
  return entry;
}

int32_t AwaitAnswer(const ready_meta_data& record) {
  MutexLock lock(gReadyAnswerMutex);
  Await(record, lock);
  return *record.status;
}

std::optional<ready_meta_data> FindRecord(uint32_t opcode) {
  const MutexLock lock(TheReadyTable().mutex);
  const auto found = TheReadyTable().opcodes.find(opcode);
  if (found == TheReadyTable().opcodes.end() || ThisThreadIsOutdated()) {
    return std::nullopt;
  }
  return found->second;
}

// Unless the entry is a later one, made after a deinitialisation.
void EraseReady(uint32_t opcode, const ready_meta_data& record) {
  const MutexLock lock(TheReadyTable().mutex);
  const auto found = TheReadyTable().opcodes.find(opcode);
  if (found != TheReadyTable().opcodes.end() && found->second.received == record.received) {
    TheReadyTable().opcodes.erase(found);
  }
}

}  // namespace

void HandleReadyAnswer(const Json::Value& message) {
  const auto entry = FindRecord(FromDecimal(TextMember(message, "opcode", "0")));
  if (!entry) {
    return;
  }
  const int32_t result = IntMember(message, "result", -1);
  const MutexLock lock(gReadyAnswerMutex);
  *entry->status = result;
  Deliver(*entry);
}

int32_t _orvd_svc_ready(uint32_t service_id, uint32_t opcode, orvd_state_callback_t state_callback,
                        void* user_data, orvd_task_function_t task_function) {
  const std::string request = ReadyRequest(service_id, opcode);
  // Taken before the check, so that the request never reaches the Manager of a later one.
  auto connection = ConnectionToSendOn();
  const auto [refusal, generation] = CheckServiceId(service_id);
  if (refusal != 0) {
    return refusal;
  }
  const auto record =
      InsertReady(generation, opcode,
                  {std::make_shared<int32_t>(1), std::make_shared<std::condition_variable>(),
                   std::make_shared<bool>(false), state_callback, user_data, task_function});
  if (!record || SendOn(std::move(connection), request.c_str()) != 0) {
    return -1;
  }
  if (AwaitAnswer(*record) < 0) {
    LOG_AT(kFailure, "Failed to make service ready at manager; aborting");
    EraseReady(opcode, *record);
    return -1;
  }
  return 0;
}
