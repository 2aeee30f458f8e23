// The answer to "exec_task".

#include <string>

#include "IOrvdClient.h"
#include "link/send.h"

using namespace orvd_client;

namespace {

constexpr int32_t kShortForm = -1;
constexpr size_t kFixedText = 200;  // approximate size of an answer without the service's texts
constexpr const char* kFailedResult = "-1";

std::string ShortAnswer(const _orvex_call_info_t& call, const std::string& req_type) {
  std::string answer = R"({"req_type":")";
  answer += req_type;
  answer += R"(", "Result":")";
  answer += call.result;
  answer += R"("})";
  return answer;
}

std::string FullAnswer(const _orvex_call_info_t& call) {
  const bool failed = call.result == kFailedResult;
  std::string answer;
  answer.reserve(kFixedText + call.opcode.size() + call.name.size() + call.result.size());
  answer += R"({"opcode":")";
  answer += call.opcode;
  answer += R"(","name":")";
  answer += call.name;
  answer += R"(","subsys_id":")";
  answer += std::to_string(call.subsys_id);
  answer += R"(","req_type":"exec_task","return":)";
  answer += std::to_string(call.ret);
  answer += R"(,"func":{)";
  if (!failed) {
    answer += call.result;
  }
  answer += R"(},"transac_id":)";
  answer += std::to_string(call.transac_id);
  answer += R"(,"status": )";
  answer += std::to_string(failed ? -1 : call.status);
  answer += R"(,"session_id":)";
  answer += std::to_string(call.session_id);
  answer += "}";
  return answer;
}

}  // namespace

void orvd_send_response(_orvex_call_info_t* call, std::string req_type) {
  const std::string answer =
      call->transac_id == kShortForm ? ShortAnswer(*call, req_type) : FullAnswer(*call);
  orvd_send_to_manager_raw(answer.c_str());
}
