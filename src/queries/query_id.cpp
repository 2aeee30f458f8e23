#include "queries/query_id.h"

#include <limits>

#include "base/json_members.h"
#include "base/log.h"
#include "base/mutex.h"

using namespace orvd_client;

namespace {

Mutex gQueryIdMutex;
uint32_t gQueryId GUARDED_BY(gQueryIdMutex) = 0;

}  // namespace

uint32_t orvd_client::NextQueryId() {
  const MutexLock lock(gQueryIdMutex);
  if (gQueryId == std::numeric_limits<uint32_t>::max()) {
    LOG_AT(kEveryLevel, "query id have reached the maximum.");
    gQueryId = 0;
  }
  return ++gQueryId;
}

bool query_id_validation(const Json::Value& msg, unsigned int& query_id) {
  return ReadUintMember(msg, "QueryId", query_id) && query_id != 0;
}
