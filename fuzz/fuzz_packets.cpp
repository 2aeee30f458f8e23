// The input is a list of packets, one on each line. It may begin with marks. For each mark a call
// of kCallTable waits for its answer while the packets are handled, and the mark in a packet is
// replaced by the query id. At the end the calls that still wait are answered.

#include <algorithm>
#include <future>
#include <sstream>
#include <vector>

#include "harness.h"
#include "queries/query_id.h"

namespace {

void OfferOther() {
  const char* definition = "\x02{\"Orvex\":{\"opcode\":\"20\",\"subsystems\":[{\"id\":1}]}}";
  if (_orvd_svc_register_auth(kServiceId, kOtherOpcode, definition, "t") == 0) {
    _orvd_svc_ready(kServiceId, kOtherOpcode, OnState, &sends_fail, nullptr);
  }
}

struct Call {
  char mark;
  void (*run)();
  const char* answers;
};

const Call kCallTable[] = {
    {'@', [] { orvd_permission_query(kSession, {"p"}); },
     R"({"req_type":"PERMISSION","QueryId":@})"},
    {'#', [] { orvd_info_query(kSession, {"i"}); }, R"({"req_type":"INFO_QUERY","QueryId":#})"},
    {'$', OfferOther,
     R"({"req_type":"AUTH","opcode":"32","result":0})"
     "\n"
     R"({"req_type":"REDY","opcode":"32","result":0})"},
};

void Replace(std::string& text, char mark, const std::string& by) {
  for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at)) {
    text.replace(at, 1, by);
  }
}

void HandleLines(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    Handle(line);
  }
}

}  // namespace

void TryInput(const std::string& input) {
  const size_t marks = std::min(input.find_first_not_of("@#$"), input.size());
  std::string text = input.substr(marks);
  std::string answers;
  std::vector<std::future<void>> callers;
  for (const Call& call : kCallTable) {
    if (input.find(call.mark) < marks) {
      const std::string id = std::to_string(orvd_client::NextQueryId() + 1);
      AwaitMessage(kCalls, [&] {
        callers.push_back(std::async(std::launch::async, [&call] {
          role = kCalls;
          call.run();
        }));
      });
      answers.append(call.answers) += '\n';
      Replace(text, call.mark, id);
      Replace(answers, call.mark, id);
    }
  }
  HandleLines(text);
  for (const std::future<void>& caller : callers) {
    do {
      HandleLines(answers);
    } while (caller.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready);
  }
}
