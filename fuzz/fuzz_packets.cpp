// The input is a list of packets, one on each line. It may begin with marks. For each mark a call
// of kCallTable waits for its answer while the packets are handled, and the mark in a packet is
// replaced by the query id. At the end the calls that still wait are answered.

#include <algorithm>
#include <future>
#include <regex>
#include <sstream>
#include <vector>

#include "harness.h"
#include "orvex_simulator/messages.h"
#include "queries/query_id.h"

namespace {

void OfferOther() {
  const std::string definition = orvd::Definition(kOtherOpcode, {1});
  if (_orvd_svc_register_auth(kServiceId, kOtherOpcode, definition.c_str(), "t") == 0) {
    _orvd_svc_ready(kServiceId, kOtherOpcode, OnState, &sends_fail, nullptr);
  }
}

struct Call {
  char mark;
  void (*run)();
  std::string (*answers)(uint32_t query_id);
};

const Call kCallTable[] = {
    {'@', [] { orvd_permission_query(kSession, {"p"}); },
     [](uint32_t id) { return orvd::PermissionAnswer(id, {true}); }},
    {'#', [] { orvd_info_query(kSession, {"i"}); },
     [](uint32_t id) { return orvd::InfoAnswer("INFO_QUERY", id, {"SUCCESS:v"}); }},
    {'$', OfferOther,
     [](uint32_t) {
       return orvd::OpcodeAnswer("AUTH", kOtherOpcode, 0) + "\n" +
              orvd::OpcodeAnswer("REDY", kOtherOpcode, 0);
     }},
};

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
      const uint32_t id = orvd_client::NextQueryId() + 1;
      AwaitMessage(kCalls, [&] {
        callers.push_back(std::async(std::launch::async, [&call] {
          role = kCalls;
          call.run();
        }));
      });
      answers += call.answers(id) + "\n";
      text = std::regex_replace(text, std::regex({'[', call.mark, ']'}), std::to_string(id));
    }
  }
  HandleLines(text);
  for (const std::future<void>& caller : callers) {
    do {
      HandleLines(answers);
    } while (caller.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready);
  }
}
