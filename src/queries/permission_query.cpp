#include "queries/permission_query.h"

#include <string>
#include <vector>

#include "IOrvdClient.h"
#include "base/json_members.h"
#include "base/log.h"
#include "base/never_destroyed.h"
#include "link/send.h"
#include "link/service_id.h"
#include "queries/pending_queries.h"
#include "queries/query_id.h"

using namespace orvd_client;

namespace {

struct permRes_meta_data_t {
  std::shared_ptr<std::vector<bool>> response;
  std::shared_ptr<std::condition_variable> cv;
  std::shared_ptr<bool> received;
};

using PendingPermissions = PendingQueries<permRes_meta_data_t>;

PendingPermissions& Pending() {
  return NeverDestroyed<PendingPermissions>();
}

std::string PermissionRequest(uint32_t session_id, int32_t service_id, uint32_t query_id,
                              const std::vector<std::string>& permissions) {
  std::string request = R"({"req_type":"PERMISSION","Session_Id":)";
  request += std::to_string(session_id);
  request += R"(,"service_id":)";
  request += std::to_string(service_id);
  request += R"(,"Permissions":[)";
  request += vector_to_string_with_quotes(permissions);
  request += R"(],"QueryId":)";
  request += std::to_string(query_id);
  request += "}";
  return request;
}

void ReadGrants(const Json::Value& list, std::vector<bool>& response) {
  LOG_AT(kEveryLevel, "size of permResp array: %d", static_cast<int>(list.size()));
  int i = 0;
  for (const Json::Value& element : list) {
    const bool granted = std::stoi(element.asString()) != 0;
    response.push_back(granted);
    LOG_AT(kEveryLevel, "i = %d, permRes_meta_data response: %d", i, granted ? 1 : 0);
    ++i;
  }
}

}  // namespace

void orvd_client::HandlePermissionAnswer(const Json::Value& message) {
  unsigned int query_id = 0;
  if (!query_id_validation(message, query_id)) {
    LOG_AT(kFailure, "Discard PERMISSION result due to invalid query_id id");
    return;
  }
  Pending().Answer(query_id, [&message](std::vector<bool>& response) {
    if (IntMember(message, "status", 0) != 0) {
      response.push_back(false);
    } else {
      ReadGrants(ListMember(message, "PermRes"), response);
    }
  });
}

std::vector<bool> orvd_permission_query(uint32_t session_id, std::vector<std::string> permissions) {
  const int32_t service_id = ServiceId();
  const uint32_t query_id = NextQueryId();
  const std::string request = PermissionRequest(session_id, service_id, query_id, permissions);
  for (const std::string& permission : permissions) {
    LOG_AT(kEveryLevel, "permission: %s", permission.c_str());
  }
  LOG_AT(kEveryLevel, "Entry orvd_permission_query");
  LOG_AT(kEveryLevel, "orvd_permission_query request: %s", request.c_str());
  const permRes_meta_data_t record = Pending().Insert(query_id);
  if (orvd_send_to_manager_raw(request.c_str()) != 0) {
    LOG_AT(kFailure, "Failed to receive ORVEX permission query ack");
    Pending().Erase(query_id);
    std::vector<bool> none_granted(permissions.empty() ? 1 : permissions.size(), false);
    return none_granted;
  }
  LOG_AT(kEveryLevel, "waiting for response in orvd_permission_query");
  return Pending().WaitForResults(query_id, record,
                                  [] { LOG_AT(kEveryLevel, "Exit orvd_permission_query"); });
}
