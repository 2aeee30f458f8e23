#include "requests.h"

#include <vector>

#include "orvex_simulator/messages.h"

namespace orvd {
namespace {

// The texts of a list, or none if it is no list.
std::vector<std::string> TextsOf(const Json::Value& list) {
  std::vector<std::string> texts;
  for (const Json::Value& one : list.isArray() ? list : Json::Value()) {
    texts.push_back(one.isString() ? one.asString() : "");
  }
  return texts;
}

std::string AnswerPermissions(const Json::Value& query, const Knowledge& knowledge) {
  std::vector<bool> granted;
  for (const std::string& permission : TextsOf(query["Permissions"])) {
    granted.push_back(knowledge.is_granted(permission));
  }
  return PermissionAnswer(query["QueryId"].asUInt(), granted);
}

std::string AnswerInfos(const std::string& kind, const Json::Value& query,
                        const Knowledge& knowledge) {
  std::vector<std::string> results;
  for (const std::string& item : TextsOf(query["QueryInfos"])) {
    const std::optional<std::string> value = knowledge.value_of(item);
    results.push_back(value ? "SUCCESS:" + *value : "ERROR:unknown item");
  }
  return InfoAnswer(kind, query["QueryId"].asUInt(), results);
}

}  // namespace

std::optional<std::string> AnswerRequest(const Json::Value& request, int service_id,
                                         const Knowledge& knowledge) {
  const std::string kind = request["req_type"].isString() ? request["req_type"].asString() : "";
  if (kind == "INIT") {
    return InitAnswer(service_id);
  }
  if ((kind == "AUTH" || kind == "REDY") && request["Opcode"].isUInt()) {
    return OpcodeAnswer(kind, request["Opcode"].asUInt(), 0);
  }
  if (kind == "PERMISSION" && request["QueryId"].isUInt()) {
    return AnswerPermissions(request, knowledge);
  }
  if ((kind == "INFO_QUERY" || kind == "INFO_MNTR") && request["QueryId"].isUInt()) {
    return AnswerInfos(kind, request, knowledge);
  }
  return std::nullopt;
}

}  // namespace orvd
