// The baseline: a service written by hand, without the library. It receives into one buffer, parses
// with Json::Reader, reads the members of the message, answers each task from a detached
// std::thread, and sets the received bytes to zero. It has no tables, no checks and no log.
//
// With the argument "decode" it also decodes the arguments, with separate code for each shape that
// the benchmark sends, and checks type and range of the values.

#include <json/reader.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>

#include "common.h"

namespace {

int g_socket = -1;
bool g_decode = false;

void Require(bool condition) {
  if (!condition) {
    std::quick_exit(1);
  }
}

void Send(const std::string& text) {
  Require(send(g_socket, text.data(), text.size(), 0) >= 0);
}

// --- Requests. The service waits for one answer at a time.

std::mutex g_mutex;
std::condition_variable g_answered;
std::optional<std::size_t> g_answer;

void Deliver(std::size_t grants) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_answer = grants;
  g_answered.notify_one();
}

// Returns the number of granted permissions.
std::size_t Request(const std::string& text) {
  Send(text);
  std::unique_lock<std::mutex> lock(g_mutex);
  g_answered.wait_for(lock, std::chrono::seconds(3), [] { return g_answer.has_value(); });
  return std::exchange(g_answer, std::nullopt).value_or(0);
}

std::size_t Ask(const std::vector<std::string>& permissions) {
  static uint32_t query_id = 0;
  std::string request = R"({"req_type":"PERMISSION","Session_Id":1,"service_id":7,"Permissions":[)";
  for (const std::string& permission : permissions) {
    request += (request.back() == '[' ? "\"" : ",\"") + permission + '"';
  }
  return Request(request + R"(],"QueryId":)" + std::to_string(++query_id) + "}");
}

// Of an API definition, before its JSON text.
constexpr std::size_t kPrefix = 8;

void Offer() {
  const std::string number = std::to_string(bench::kOpcode);
  Request(R"({"req_type":"AUTH","Service_Id":7,"Opcode":)" + number + R"(,"api_def":)" +
          bench::Definition().substr(kPrefix) + R"(,"Token":")" + bench::kToken + R"("})");
  Request(R"({"req_type":"REDY","Service_Id":7,"Opcode":)" + number + "}");
}

// --- Arguments

struct Arguments {
  std::tuple<uint8_t, uint16_t, uint32_t, uint64_t, int8_t, int16_t, int32_t, double, std::string,
             bool>
      scalars;
  std::vector<uint32_t> unsigneds;
  std::vector<int32_t> integers;
  std::string text;
  std::size_t count = 0;  // of the values
};

template <typename T>
T Read(const Json::Value& value) {
  if constexpr (std::is_integral_v<T> && sizeof(T) < sizeof(int) && !std::is_same_v<T, bool>) {
    const int number = Read<int>(value);
    Require(number >= std::numeric_limits<T>::min() && number <= std::numeric_limits<T>::max());
    return static_cast<T>(number);
  } else {
    Require(value.is<T>());
    return value.as<T>();
  }
}

template <typename... T>
void ReadScalars(const Json::Value& args, std::tuple<T...>& scalars) {
  Require(args.size() == sizeof...(T));
  auto arg = args.begin();
  scalars = {Read<T>((*arg++)["value"])...};
}

template <typename T>
void ReadVector(const Json::Value& list, std::vector<T>& elements) {
  elements.reserve(list.size());
  for (const Json::Value& element : list) {
    elements.push_back(Read<T>(element));
  }
}

Arguments Decode(const Json::Value& func) {
  const std::string name = func["name"].asString();
  const Json::Value& args = func["args"];
  Arguments decoded;
  if (name == "scalars") {
    ReadScalars(args, decoded.scalars);
  } else if (name == "struct") {
    for (const Json::Value& member : args[0]["members"]) {
      decoded.integers.push_back(Read<int32_t>(member["value"]));
    }
  } else if (name == "uint32s") {
    ReadVector(args[0]["value"], decoded.unsigneds);
  } else if (name == "int32s") {
    ReadVector(args[0]["value"], decoded.integers);
  } else {
    decoded.text = Read<std::string>(args[0]["value"]);
  }
  decoded.count = name == "scalars"
                      ? args.size()
                      : decoded.unsigneds.size() + decoded.integers.size() + decoded.text.size();
  return decoded;
}

// --- Tasks

struct Call {
  std::string name;
  uint32_t subsys_id;
  uint32_t session_id;
  int32_t transac_id;
};

void Answer(const Call& call, std::size_t read) {
  Send(R"({"opcode":"0x0000a001","name":")" + call.name + R"(","subsys_id":")" +
       std::to_string(call.subsys_id) + R"(","req_type":"exec_task","return":0,"func":{"read":)" +
       std::to_string(read) + R"(,"done":true},"transac_id":)" + std::to_string(call.transac_id) +
       R"(,"status": 0,"session_id":)" + std::to_string(call.session_id) + "}");
}

void StartTask(const Json::Value& message) {
  Require(strtoul(message["opcode"].asCString(), nullptr, 16) == bench::kOpcode);
  const Json::Value& func = message["func"];
  Call call{func["name"].asString(), message["subsys_id"].asUInt(), message["session_id"].asUInt(),
            message["transac_id"].asInt()};
  if (g_decode) {
    std::thread([call = std::move(call), args = Decode(func)]() mutable {
      const std::size_t count = args.count;
      args = {};
      Answer(call, count);
    }).detach();
    return;
  }
  std::thread([call = std::move(call)] {
    Answer(call, bench::IsCommand(call.name) ? bench::RunCommand(call.name, Ask) : 0);
  }).detach();
}

// --- Other messages

// Reads all pairs. Only the answer to "start_session" names them.
void TakeSession(const std::string& type, const Json::Value& message) {
  const bool starts = type == "start_session";
  std::string pairs = R"(,"opcodes":[{"id":"0x0000a001","subsystems":[)";
  uint32_t sum = 0;
  for (const Json::Value& opcode : message["opcodes"]) {
    for (const Json::Value& subsystem : opcode["subsystems"]) {
      const uint32_t ssid = subsystem["id"].asUInt();
      sum += ssid;
      pairs += starts ? R"({"id":)" + std::to_string(ssid) + "}," : "";
    }
  }
  Require(sum != 0);
  pairs.pop_back();
  if (type != "ready_session") {
    Send(R"({"req_type":")" + type + R"(","session_id":)" +
         std::to_string(message["session_id"].asUInt()) + R"(,"Result":"Success")" +
         (starts ? pairs + "]}]}" : "}"));
  }
}

void TakeGrants(const Json::Value& message) {
  std::size_t grants = 0;
  for (const Json::Value& grant : message["PermRes"]) {
    grants += std::stoi(grant.asString()) != 0 ? 1 : 0;
  }
  Deliver(grants);
}

void TakeChange(const Json::Value& message) {
  const std::string state = message["state"].asString() + ":" + message["value"].asString();
  const std::string package = message["package"].asString();
  Require(!state.empty() && !package.empty() && message["session_id"].asUInt() != 0);
  Send("ACK");
}

void Take(const Json::Value& message) {
  const std::string type = message["req_type"].asString();
  if (type == "exec_task") {
    StartTask(message);
  } else if (type == "start_session" || type == "ready_session" || type == "end_session") {
    TakeSession(type, message);
  } else if (type == "PERMISSION") {
    TakeGrants(message);
  } else if (type == "state_change") {
    TakeChange(message);
  } else {
    Deliver(0);
  }
}

void Receive() {
  std::vector<char> buffer(524288);
  Json::Reader reader;
  for (;;) {
    const ssize_t received = recv(g_socket, buffer.data(), buffer.size(), 0);
    Json::Value message;
    Require(received > 0 && reader.parse(buffer.data(), buffer.data() + received, message));
    Take(message);
    memset(buffer.data(), 0, static_cast<std::size_t>(received));
  }
}

}  // namespace

int main(int argc, char** /*argv*/) {
  g_decode = argc > 1;
  const sockaddr_un address{AF_UNIX, "/dev/socket/orvd"};
  g_socket = socket(AF_UNIX, SOCK_SEQPACKET, 0);
  Require(connect(g_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0);
  std::thread(Receive).detach();
  Request(R"({"req_type":"INIT"})");
  Offer();
  for (;;) {
    pause();
  }
}
