#include "queries/info_query.h"

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

struct res_infos_meta_data_t {
  std::shared_ptr<std::vector<std::string>> response;
  std::shared_ptr<std::condition_variable> cv;
  std::shared_ptr<bool> received;
};

using PendingInfos = PendingQueries<res_infos_meta_data_t>;

PendingInfos& Pending() {
  return NeverDestroyed<PendingInfos>();
}

std::string InfoRequest(uint32_t session_id, const std::vector<std::string>& infos,
                        const std::string& req_type_head, uint32_t query_id) {
  std::string request = R"({"req_type":")";
  request += req_type_head;
  request += R"(,"Session_Id":)";
  request += std::to_string(session_id);
  request += R"(,"QueryId":)";
  request += std::to_string(query_id);
  request += R"(,"QueryInfos":[)";
  request += vector_to_string_with_quotes(infos);
  request += "]}";
  return request;
}

void ReadInfos(const Json::Value& list, std::vector<std::string>& response) {
  LOG_AT(kDetail, "size of result array: %d", static_cast<int>(list.size()));
  int i = 0;
  for (const Json::Value& element : list) {
    const std::string info = element.asString();
    LOG_AT(kDetail, "i = %d, info result: %s", i, info.c_str());
    response.push_back(info);
    ++i;
  }
}

// `req_type_head` is the rest of the message's first member, and may hold further members.
std::vector<std::string> orvd_info_common(uint32_t session_id,
                                          const std::vector<std::string>& infos,
                                          const std::string& req_type_head,
                                          const std::string& kind) {
  if (infos.empty()) {
    return {"ERROR:Empty requested info"};
  }
  const uint32_t query_id = NextQueryId();
  const std::string request = InfoRequest(session_id, infos, req_type_head, query_id);
  LOG_AT(kDetail, "orvd_info_%s request: %s", kind.c_str(), request.c_str());
  const res_infos_meta_data_t record = Pending().Insert(query_id);
  if (orvd_send_to_manager_raw(request.c_str()) != 0) {
    LOG_AT(kFailure, "Failed to receive ORVEX info query ack");
    Pending().Erase(query_id);
    // Deliberate: the count is cut to 8 bits, so 256 items give an empty result. Services may rely
    // on the sizes that this call returns.
    return std::vector<std::string>(static_cast<uint8_t>(infos.size()));
  }
  LOG_AT(kDetail, "waiting for response in orvd_info_%s", kind.c_str());
  return Pending().WaitForResults(query_id, record,
                                  [&kind] { LOG_AT(kDetail, "Exit orvd_info_%s", kind.c_str()); });
}

}  // namespace

void orvd_client::HandleInfoAnswer(const Json::Value& message) {
  unsigned int query_id = 0;
  if (!query_id_validation(message, query_id)) {
    LOG_AT(kFailure, "Discard %s result due to invalid query_id id",
           TextMember(message, "req_type", "0").c_str());
    return;
  }
  Pending().Answer(query_id, [&message](std::vector<std::string>& response) {
    ReadInfos(ListMember(message, "QueryInfosRes"), response);
  });
}

std::vector<std::string> orvd_info_query(uint32_t session_id, std::vector<std::string> infos) {
  return orvd_info_common(session_id, infos, R"(INFO_QUERY")", "query");
}

std::vector<std::string> orvd_info_monitor(uint32_t session_id, std::vector<std::string> infos) {
  const std::string head = R"(INFO_MNTR","service_id":)" + std::to_string(ServiceId());
  return orvd_info_common(session_id, infos, head, "monitor");
}
