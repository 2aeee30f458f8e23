#include "registration/register_auth.h"

#include <map>
#include <string>

#include "IOrvdClient.h"
#include "base/json_members.h"
#include "base/log.h"
#include "base/mutex.h"
#include "base/never_destroyed.h"
#include "base/pending_answer.h"
#include "link/send.h"
#include "link/service_id.h"
#include "registration/api_definition.h"
#include "registration/supported_services.h"

using namespace orvd_client;

namespace {

constexpr int kLoggedCharacters = 250;

struct RegistrationTable {
  Mutex mutex;
  std::map<uint32_t, RegsAuthMetaData> pending GUARDED_BY(mutex);
};

struct RegistrationTables {
  RegistrationTable plain;
  RegistrationTable authenticated;
};

RegistrationTable& PlainTable() {
  return NeverDestroyed<RegistrationTables>().plain;
}
RegistrationTable& AuthTable() {
  return NeverDestroyed<RegistrationTables>().authenticated;
}

RegsAuthMetaData NewRecord() {
  return {std::make_shared<int32_t>(1), std::make_shared<std::condition_variable>(),
          std::make_shared<bool>(false)};
}

void DeliverVerdict(RegistrationTable& table, const Json::Value& message) {
  const uint32_t opcode = FromDecimal(TextMember(message, "opcode", "0"));
  const MutexLock lock(table.mutex);
  const auto found = table.pending.find(opcode);
  if (found == table.pending.end()) {
    return;
  }
  *found->second.status = IntMember(message, "result", -1);
  Deliver(found->second);
}

std::string WantedVersions() {
  std::string wanted;
  for (const uint8_t version : ORVD_JSON_DEF_VER_ARR) {
    wanted += std::to_string(version) + ",";
  }
  wanted.pop_back();
  return wanted;
}

// Returns 0 and the definition. For an invalid definition it logs why and returns the result of the
// registration.
int ReadDefinition(const char* api_def, uint32_t opcode, const char*& json,
                   ApiDefinition& definition) {
  const ApiBlob blob = SplitApiBlob(api_def);
  if (!IsAcceptedVersion(blob.version)) {
    LOG_AT(kProgress, "Unsupported API definition (wanted %s; got %d)", WantedVersions().c_str(),
           blob.version);
    return -1;
  }
  std::string error;
  auto parsed = ParseApiDefinition(blob.json, error);
  if (!parsed) {
    LOG_AT(kFailure, "Parsing of API definition failed!! (opcode 0x%08x)", opcode);
    LOG_AT(kEveryLevel, "  JSON failure %s", error.c_str());
    return -1;
  }
  const uint32_t defined = FromHex(parsed->opcode);
  if (defined != opcode) {
    // Deliberate: the line shows decimal digits after "0x". People search logs for this text.
    LOG_AT(kFailure, "Mismatch opcode in registration %s (0x%08u) vs definition (0x%08u)",
           parsed->opcode.c_str(), opcode, defined);
    return -2;
  }
  LOG_AT(kEveryLevel, "json is %.*s", kLoggedCharacters, blob.json);
  json = blob.json;
  definition = std::move(*parsed);
  return 0;
}

std::string AuthRequest(uint32_t service_id, uint32_t opcode, const char* json, const char* token) {
  std::string request = R"({"req_type":"AUTH","Service_Id":)";
  request += std::to_string(static_cast<int32_t>(service_id));
  request += R"(,"Opcode":)";
  request += std::to_string(opcode);
  request += R"(,"api_def":)";
  request += json;
  request += R"(,"Token":")";
  request += token;
  request += R"("})";
  return request;
}

// Returns a record for this caller. Reuses a record that an earlier call left because it could not
// send. A record on which another caller still waits stays with that caller.
RegsAuthMetaData InsertPending(uint32_t opcode) {
  const MutexLock lock(AuthTable().mutex);
  RegsAuthMetaData& record = AuthTable().pending.try_emplace(opcode, NewRecord()).first->second;
  if (!HasNoWaiter(record)) {
    return NewRecord();
  }
  *record.received = false;
  return record;
}

int32_t AwaitVerdict(uint32_t opcode, const RegsAuthMetaData& record) {
  MutexLock lock(AuthTable().mutex);
  Await(record, lock);
  AuthTable().pending.erase(opcode);
  return *record.status;
}

// Returns false if the generation has ended. The deinitialisation that ended it removes all pairs.
bool RecordSupported(Generation generation, uint32_t opcode, const ApiDefinition& definition) {
  for (const uint32_t ssid : definition.subsystems) {
    if (!AddSupportedPair(generation, opcode, ssid)) {
      break;
    }
    LOG_AT(kProgress, "Successfully authed and added 0x%08x::%u service mapping", opcode, ssid);
  }
  return CurrentGeneration() == generation;
}

bool RequestRegistration(uint32_t opcode, std::shared_ptr<Connection> connection,
                         const std::string& request) {
  const RegsAuthMetaData record = InsertPending(opcode);
  if (SendOn(std::move(connection), request.c_str()) != 0) {
    LOG_AT(kFailure, "ORVEX service authenticate and registration failed to send to manager.");
    return false;
  }
  if (AwaitVerdict(opcode, record) < 0) {
    LOG_AT(kFailure, "ORVEX service auth registration failed.");
    return false;
  }
  return true;
}

}  // namespace

void orvd_client::HandleAuthAnswer(const Json::Value& message) {
  DeliverVerdict(AuthTable(), message);
}

void orvd_client::HandlePlainRegistrationAnswer(const Json::Value& message) {
  DeliverVerdict(PlainTable(), message);
}

int32_t _orvd_svc_register_auth(uint32_t service_id, uint32_t opcode, const char* api_def,
                                const char* token) {
  LOG_AT(kProgress, "ORVEX service register and authenticate");
  // Read before the check, so that the request is not sent to the Manager of a later
  // initialisation.
  auto connection = ConnectionToSendOn();
  const auto [refusal, generation] = CheckServiceId(service_id);
  if (refusal != 0) {
    return refusal;
  }
  if (api_def == nullptr || token == nullptr) {
    return -2;
  }
  const char* json = nullptr;
  ApiDefinition definition;
  const int failure = ReadDefinition(api_def, opcode, json, definition);
  if (failure != 0) {
    return failure;
  }
  if (!RequestRegistration(opcode, std::move(connection),
                           AuthRequest(service_id, opcode, json, token))) {
    return -1;
  }
  if (!RecordSupported(generation, opcode, definition)) {
    LOG_AT(kFailure, "ORVEX service auth registration failed.");
    return -1;
  }
  LOG_AT(kProgress, "ORVEX service authed and registered");
  return 0;
}

int32_t _orvd_svc_register(...) {
  LOG_AT(kEveryLevel,
         "Error: The orvd_svc_register API is deprecated. Use the orvd_svc_register_auth API.");
  return -1;
}
