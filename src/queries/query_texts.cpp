// Texts of query requests and query results.

#include <string>
#include <vector>

#include "IOrvdClient.h"
#include "base/log.h"

using namespace orvd_client;

std::string vector_to_string_with_quotes(const std::vector<std::string>& elements) {
  std::string list;
  for (const std::string& element : elements) {
    list += list.empty() ? "\"" : ",\"";
    list += element;
    list += "\"";
  }
  return list;
}

int parse_result_of_query_info(std::string result, std::string& out) {
  LOG_AT(kDetail, "parse_result_of_query_info original result: %s", result.c_str());
  if (result.empty()) {
    out = "Empty result";
    return -1;
  }
  const size_t colon = result.find(':');
  if (colon == std::string::npos) {
    out = "Invalid result";
    return -1;
  }
  const std::string status = result.substr(0, colon);
  LOG_AT(kDetail, "statue of original result: %s", status.c_str());
  if (status != "SUCCESS" && status != "ERROR") {
    out = "Invalid result";
    return -1;
  }
  out = result.substr(colon + 1);
  LOG_AT(kDetail, "result of original result: %s", out.c_str());
  return status == "SUCCESS" ? 0 : -1;
}
