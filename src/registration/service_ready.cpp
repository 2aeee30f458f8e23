#include "registration/service_ready.h"

#include <string>

#include "IOrvdClient.h"
#include "base/json_members.h"
#include "base/log.h"
#include "base/pending_answer.h"
#include "link/send.h"
#include "link/service_id.h"
#include "registration/ready_table.h"

using namespace orvd_client;

namespace {

// Guards the hand-over of answers. The ready-table mutex would be wrong here: it is held during
// notification callbacks, and a thread that waits for an answer must not wait for these.
Mutex gReadyAnswerMutex;

std::string ReadyRequest(uint32_t service_id, uint32_t opcode) {
  std::string request = R"({"req_type":"REDY","Service_Id":)";
  request += std::to_string(static_cast<int32_t>(service_id));
  request += R"( ,"Opcode":)";
  request += std::to_string(opcode);
  request += "}";
  return request;
}

// Returns the record that receives the answer: the new one, or the existing one of an opcode in the
// table. Inserts nothing if the generation has ended. A deinitialisation ends the generation before
// it clears the table, so no entry remains.
std::optional<ready_meta_data> InsertReady(Generation generation, uint32_t opcode,
                                           ready_meta_data record) {
  const MutexLock lock(TheReadyTable().mutex);
  if (CurrentGeneration() != generation) {
    return std::nullopt;
  }
  const ready_meta_data& entry =
      TheReadyTable().opcodes.try_emplace(opcode, std::move(record)).first->second;
  const MutexLock answer_lock(gReadyAnswerMutex);
  if (HasNoWaiter(entry)) {
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

// Does not erase the entry of a later initialisation.
void EraseReady(uint32_t opcode, const ready_meta_data& record) {
  const MutexLock lock(TheReadyTable().mutex);
  const auto found = TheReadyTable().opcodes.find(opcode);
  if (found != TheReadyTable().opcodes.end() && found->second.received == record.received) {
    TheReadyTable().opcodes.erase(found);
  }
}

}  // namespace

void orvd_client::HandleReadyAnswer(const Json::Value& message) {
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
  // Read before the check, so that the request is not sent to the Manager of a later
  // initialisation.
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
