// The baseline: a hand-written service without the library. It receives into one buffer, parses
// with Json::Reader, reads the members of the message, answers each task from a detached
// std::thread, and sets the received bytes to zero. It has no tables, no checks and no log.
//
// With the argument "decode" it also decodes the benchmark's arguments, with separate code for each
// shape.

#include <json/reader.h>
#include <json/value.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "decode_by_hand.h"
#include "wire.h"

namespace {

constexpr std::size_t kBufferSize = 524288;

int g_socket = -1;
bool g_decode = false;

void Send(const std::string& text) {
  if (send(g_socket, text.data(), text.size(), 0) < 0) {
    std::quick_exit(1);
  }
}

// --- Requests. The service waits for one answer at a time.

std::mutex g_answer_mutex;
std::condition_variable g_answered;
bool g_answer_is_there = false;
std::size_t g_grants = 0;

void Deliver(std::size_t grants) {
  const std::lock_guard<std::mutex> lock(g_answer_mutex);
  g_grants = grants;
  g_answer_is_there = true;
  g_answered.notify_one();
}

bool AnswerIsThere() {
  return g_answer_is_there;
}

void Exchange(const std::string& request) {
  Send(request);
  std::unique_lock<std::mutex> lock(g_answer_mutex);
  g_answered.wait(lock, AnswerIsThere);
  g_answer_is_there = false;
}

// Waits at most three seconds for the answer.
std::size_t Query(const std::string& request) {
  Send(request);
  std::unique_lock<std::mutex> lock(g_answer_mutex);
  g_answered.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::seconds(3),
                        AnswerIsThere);
  g_answer_is_there = false;
  return g_grants;
}

std::string PermissionRequest(const std::vector<std::string>& permissions, uint32_t query_id) {
  std::string request = R"({"req_type":"PERMISSION","Session_Id":1,"service_id":7,"Permissions":[)";
  for (const std::string& permission : permissions) {
    request += '"';
    request += permission;
    request += R"(",)";
  }
  request.pop_back();
  return request + R"(],"QueryId":)" + std::to_string(query_id) + "}";
}

bool Ask(const bench::Command& command) {
  const std::vector<std::string> permissions = bench::Permissions(command.first);
  bool answered = true;
  for (uint32_t i = 1; i <= command.count; ++i) {
    answered = Query(PermissionRequest(permissions, i)) == command.first && answered;
  }
  return answered;
}

void OfferOne(uint32_t opcode, uint32_t subsystems) {
  const std::string definition = bench::Definition(opcode, subsystems);
  const char* json = definition.c_str() + 8;
  Json::Value root;
  Json::Reader().parse(json, json + strlen(json), root);
  const std::string number = std::to_string(opcode);
  Exchange(R"({"req_type":"AUTH","Service_Id":7,"Opcode":)" + number + R"(,"api_def":)" + json +
           R"(,"Token":")" + bench::kToken + R"("})");
  Exchange(R"({"req_type":"REDY","Service_Id":7 ,"Opcode":)" + number + "}");
}

bool Offer(const bench::Command& command) {
  for (uint32_t i = 0; i < command.count; ++i) {
    OfferOne(command.first + i, 1);
  }
  return true;
}

// --- Tasks

struct Call {
  std::string name;
  uint32_t subsys_id;
  uint32_t session_id;
  int32_t transac_id;
};

void Answer(const Call& call, int result) {
  std::string answer = R"({"opcode":"0x0000a001","name":")";
  answer += call.name;
  answer += R"(","subsys_id":")";
  answer += std::to_string(call.subsys_id);
  answer += R"(","req_type":"exec_task","return":)";
  answer += std::to_string(result);
  answer += R"(,"func":{"done":true},"transac_id":)";
  answer += std::to_string(call.transac_id);
  answer += R"(,"status": 0,"session_id":)";
  answer += std::to_string(call.session_id);
  answer += "}";
  Send(answer);
}

int Execute(const bench::Command& command) {
  return (command.what == "ask" ? Ask(command) : Offer(command)) ? 0 : -1;
}

void StartTask(const Json::Value& message) {
  if (strtoul(message["opcode"].asCString(), nullptr, 16) != bench::kOpcode) {
    return;
  }
  const Json::Value& func = message["func"];
  Call call{func["name"].asString(), message["subsys_id"].asUInt(), message["session_id"].asUInt(),
            message["transac_id"].asInt()};
  if (g_decode) {
    std::thread([call = std::move(call), args = bench::DecodeByHand(func)]() mutable {
      const int count = bench::CountDecoded(args);
      args = {};
      Answer(call, count);
    }).detach();
    return;
  }
  std::thread([call = std::move(call)] {
    const bench::Command command = bench::ParseCommand(call.name);
    Answer(call, command.what.empty() ? 0 : Execute(command));
  }).detach();
}

// --- Sessions

template <typename Visit>
void ForEachPair(const Json::Value& message, Visit visit) {
  for (const Json::Value& opcode : message["opcodes"]) {
    for (const Json::Value& subsystem : opcode["subsystems"]) {
      visit(subsystem["id"].asUInt());
    }
  }
}

void StartSession(const Json::Value& message) {
  std::string answer = R"({"req_type":"start_session","session_id":)";
  answer += std::to_string(message["session_id"].asUInt());
  answer += R"(,"Result":"Success","opcodes":[{"id":"0x0000a001","subsystems":[)";
  ForEachPair(message, [&answer](uint32_t ssid) {
    answer += R"({"id":)";
    answer += std::to_string(ssid);
    answer += "},";
  });
  answer.pop_back();
  Send(answer + "]}]}");
}

void ReadySession(const Json::Value& message) {
  uint32_t sum = 0;
  ForEachPair(message, [&sum](uint32_t ssid) { sum += ssid; });
  if (sum == 0) {
    std::quick_exit(1);
  }
}

void EndSession(const Json::Value& message) {
  ReadySession(message);
  Send(R"({"req_type":"end_session","session_id":)" +
       std::to_string(message["session_id"].asUInt()) + R"(,"Result":"Success"})");
}

// --- Messages

void Notify(const Json::Value& message) {
  const std::string state = message["state"].asString() + ":" + message["value"].asString();
  const std::string package = message["package"].asString();
  if (state.empty() || package.empty() || message["session_id"].asUInt() == 0) {
    std::quick_exit(1);
  }
  Send("ACK");
}

void Handle(const Json::Value& message) {
  const std::string type = message["req_type"].asString();
  if (type == "exec_task") {
    StartTask(message);
  } else if (type == "start_session") {
    StartSession(message);
  } else if (type == "ready_session") {
    ReadySession(message);
  } else if (type == "end_session") {
    EndSession(message);
  } else if (type == "PERMISSION") {
    std::size_t grants = 0;
    for (const Json::Value& grant : message["PermRes"]) {
      grants += std::stoi(grant.asString()) != 0 ? 1 : 0;
    }
    Deliver(grants);
  } else if (type == "state_change") {
    Notify(message);
  } else {
    Deliver(0);
  }
}

void Receive() {
  std::vector<char> buffer(kBufferSize);
  Json::Reader reader;
  for (;;) {
    const ssize_t received = recv(g_socket, buffer.data(), buffer.size(), 0);
    if (received <= 0) {
      std::quick_exit(0);
    }
    Json::Value message;
    if (!reader.parse(buffer.data(), buffer.data() + received, message)) {
      std::quick_exit(1);
    }
    Handle(message);
    memset(buffer.data(), 0, static_cast<std::size_t>(received));
  }
}

void Connect() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strcpy(address.sun_path, "/dev/socket/orvd");
  g_socket = socket(AF_UNIX, SOCK_SEQPACKET, 0);
  if (connect(g_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    std::quick_exit(1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  g_decode = argc > 1 && strcmp(argv[1], "decode") == 0;
  Connect();
  std::thread(Receive).detach();
  Exchange(R"({"req_type":"INIT"})");
  OfferOne(bench::kOpcode, bench::kSubsystems);
  for (;;) {
    pause();
  }
}
