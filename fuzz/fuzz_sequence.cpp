// A conversation, one packet a line. Before the first line, where the text asks for it:
//   @   a permission query waits, and every @ stands for its id
//   #   an information query waits, and every # stands for its id
//   $   the other opcode is being registered and made ready; the first $ goes
// After the last one the Manager answers what still waits.

#include <atomic>
#include <functional>
#include <sstream>
#include <thread>
#include <vector>

#include "IOrvdClient.h"
#include "harness.h"

namespace {

int queries = 0;

int Agree(int /*service_id*/, orvd_req_t* /*req*/, void* /*user_data*/) {
  return 0;
}

void OfferOther() {
  const char* definition = "\x02{\"Orvex\":{\"opcode\":\"20\",\"subsystems\":[{\"id\":1}]}}";
  if (_orvd_svc_register_auth(7, kOtherOpcode, definition, "t") == 0) {
    _orvd_svc_ready(7, kOtherOpcode, Agree, nullptr, nullptr);
  }
}

void HandleLine(const std::string& line) {
  Handle(line.data(), line.size());
  CheckService();
}

// A caller that waits for the Manager, until its closing answers have come.
class Caller {
 public:
  Caller(const std::function<void()>& call, std::vector<std::string> closing)
      : closing_(std::move(closing)), thread_([this, call] {
          call();
          done_ = true;
        }) {}
  ~Caller() {
    while (!done_) {
      for (const std::string& answer : closing_) {
        HandleLine(answer);
      }
      std::this_thread::yield();
    }
    thread_.join();
  }
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

 private:
  std::vector<std::string> closing_;
  std::atomic<bool> done_{false};
  std::thread thread_;
};

bool Asks(const std::string& script, char what) {
  return script.find(what) != std::string::npos;
}

void Replace(std::string& script, char what, const std::string& by) {
  for (size_t at = script.find(what); at != std::string::npos; at = script.find(what, at)) {
    script.replace(at, 1, by);
  }
}

// Starts the query and puts its id in the place of `what`.
std::unique_ptr<Caller> Query(std::string& script, char what, const std::function<void()>& query,
                              const std::string& req_type) {
  const std::string id = std::to_string(++queries);
  Replace(script, what, id);
  auto caller = std::make_unique<Caller>(
      query,
      std::vector<std::string>{R"({"req_type":")" + req_type + R"(","QueryId":)" + id + "}"});
  while (QueriesSent() < queries) {
    std::this_thread::yield();
  }
  return caller;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ResetService();
  std::string script(reinterpret_cast<const char*>(data), size);
  std::vector<std::unique_ptr<Caller>> callers;
  if (Asks(script, '@')) {
    callers.push_back(Query(
        script, '@', [] { orvd_permission_query(kSession, {"p"}); }, "PERMISSION"));
  }
  if (Asks(script, '#')) {
    callers.push_back(Query(
        script, '#', [] { orvd_info_query(kSession, {"i"}); }, "INFO_QUERY"));
  }
  if (Asks(script, '$')) {
    script.erase(script.find('$'), 1);
    callers.push_back(std::make_unique<Caller>(
        OfferOther, std::vector<std::string>{R"({"req_type":"AUTH","opcode":"32","result":0})",
                                             R"({"req_type":"REDY","opcode":"32","result":0})"}));
  }
  std::istringstream lines(script);
  for (std::string line; std::getline(lines, line);) {
    HandleLine(line);
  }
  return 0;
}
