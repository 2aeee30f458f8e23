// The service of the stress test: checks all that `orvd-sim load` gives it, and answers what is
// wrong by a failure. With --plant it makes a fault itself, so that a test can prove that load
// finds it. usage: checking_service [--plant lost|double|leak EVERY]

#include <android-base/properties.h>
#include <malloc.h>
#include <orvex/service.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "IOrvdClient.h"
#include "load_arguments.h"
#include "orvex_simulator/messages.h"

namespace {

constexpr std::uint32_t kOpcodes[] = {0xa001, 0xa002};
constexpr std::uint32_t kAskEvery = 16;   // tasks for each query
constexpr std::uint32_t kSleepEvery = 8;  // tasks for each one that takes longer
constexpr std::size_t kLeak = 4096;       // bytes of a leaked holder

struct Plant {
  std::string fault;  // empty without one
  std::uint64_t every = 1;
};

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw orvex::Failure(what);
  }
}

// --- The arguments

template <typename T>
Json::Value JsonOf(const T& value) {
  return value;
}

template <typename T>
Json::Value JsonOf(const std::vector<T>& values) {
  Json::Value list = Json::arrayValue;
  for (auto&& value : values) {
    list.append(Json::Value(value));
  }
  return list;
}

void AppendAll(std::string& text, const orvex::Arguments& arguments) {
  arguments.ForEach([&text](int key, const auto& value, orvex_data_type_t type) {
    if constexpr (std::is_same_v<std::decay_t<decltype(value)>, orvex::Arguments>) {
      orvd::AppendArgument(text, key, type, Json::arrayValue);
      AppendAll(text, value);
    } else {
      orvd::AppendArgument(text, key, type, JsonOf(value));
    }
  });
}

const std::string& ExpectedText(std::uint32_t seed) {
  static const std::vector<std::string> texts = [] {
    std::vector<std::string> all;
    for (std::uint32_t one = 0; one < orvd::kLoadSeeds; ++one) {
      all.push_back(orvd::ArgumentsText(orvd::LoadArguments(one)));
    }
    return all;
  }();
  return texts.at(seed);
}

std::uint64_t CheckArguments(const orvex::Arguments& arguments) {
  std::string text;
  AppendAll(text, arguments);
  const std::string& expected = ExpectedText(arguments.Get<std::uint32_t>(orvd::kSeedKey));
  Require(text == expected, "arguments differ: got " + text + ", expected " + expected);
  return orvd::Checksum(text);
}

// --- The other checks

// load grants what does not begin with "denied", and the value of an item is its name.
void CheckQueries(const orvex::Call& call, std::uint64_t number) {
  std::vector<std::string> permissions;
  for (std::uint64_t i = 0; i < number % 40; ++i) {
    permissions.push_back("permission \"" + std::to_string(number % 7 + i) + "\"");
  }
  Require(call.Granted(permissions), "permissions are not granted");
  Require(!call.Granted("denied"), "a denied permission is granted");
  const std::string item = "item " + std::to_string(number);
  Require(call.Info(item) == item, "an item has another value");
  // The layer has no monitor query.
  Require(orvd_info_monitor(call.session(), {item, "unknown"}) ==
              std::vector<std::string>{"SUCCESS:" + item, "ERROR:unknown item"},
          "a monitored item has another value");
}

void CheckState(const orvex::Call& call) {
  const auto session = call.State<std::uint32_t>();  // null if the session has ended before
  Require(session == nullptr || *session == call.session(), "the state is of another session");
}

// load numbers the notifications of a connection from 1 on.
class NotificationCheck {
 public:
  void Take(const std::string& number) {
    const std::uint64_t taken = std::stoull(number);
    const std::uint64_t last = last_.exchange(taken);
    if (taken != 1 && taken != last + 1) {
      ++lost_;
    }
  }
  void Demand() const { Require(lost_ == 0, "a notification was lost"); }

 private:
  std::atomic<std::uint64_t> last_{0};
  std::atomic<std::uint64_t> lost_{0};
};

// --- The planted faults

void AnswerTooEarly(const orvex::Call& call, const orvex::Object& answer) {
  _orvex_call_info_t record{};
  record.session_id = call.session();
  record.transac_id = call.transaction();
  record.subsys_id = call.subsystem();
  record.opcode = orvd::OpcodeText(call.opcode());
  record.name = call.function();
  record.result = answer.Members();
  orvd_send_response(&record, "");
}

void MakeFault(const std::string& fault, const orvex::Call& call, const orvex::Object& answer) {
  if (fault == "double") {
    AnswerTooEarly(call, answer);
  } else if (fault == "leak") {
    static std::atomic<ValuesInterface*> last{nullptr};
    last = new ParamValues<std::string>(std::string(kLeak, 'x'));  // nobody deletes the one before
  } else if (fault == "lost") {
    for (;;) {
      std::this_thread::sleep_for(std::chrono::hours(1));  // the task never ends
    }
  }
}

// --- The process

// The handlers share it; it outlives main, because tasks can.
struct Checker {
  Plant plant;
  NotificationCheck notifications;
  std::atomic<std::uint64_t> tasks{0};

  orvex::Object Run(const orvex::Call& call) {
    const std::uint64_t number = ++tasks;
    const std::uint64_t sum = CheckArguments(call.arguments());
    CheckState(call);
    notifications.Demand();
    if (number % kAskEvery == 0) {
      CheckQueries(call, number / kAskEvery);
    }
    if (number % kSleepEvery == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(number % 5));
    }
    orvex::Object answer{{"sum", std::to_string(sum)}};
    if (number % plant.every == 0) {
      MakeFault(plant.fault, call, answer);
    }
    return answer;
  }
};

}  // namespace

int main(int argc, char** argv) {
  const auto checker = std::make_shared<Checker>();
  if (argc > 1) {
    checker->plant = {argv[argc - 2], std::strtoull(argv[argc - 1], nullptr, 10)};
    if (argc != 4 || std::string(argv[1]) != "--plant" || checker->plant.every == 0) {
      std::cerr << "usage: checking_service [--plant lost|double|leak EVERY]\n";
      return 2;
    }
  }
  static_cast<void>(ExpectedText(0));
  mallopt(M_ARENA_MAX, 1);  // many arenas grow for minutes, which looks like a leak
  android::base::SetProperty("persist.vendor.orvex.clientlib.debug_level", "0");
  orvex::Options options;
  options.drain = std::chrono::seconds(0);
  orvex::Service service(options);
  std::uint32_t first_subsystem = 1;
  for (const std::uint32_t opcode : kOpcodes) {
    orvex::Api& api = service.Offer(opcode, {first_subsystem, first_subsystem + 1}, "checking");
    api.On("check", [checker](orvex::Call& call) { return checker->Run(call); });
    api.On("size", [](const orvex::Arguments& arguments) {
      return orvex::Object{{"size", arguments.size()}};
    });
    api.OnSessionStart([](orvex::Session& session) {
      session.Emplace<std::uint32_t>(session.id());
      return true;
    });
    first_subsystem += 2;
  }
  const auto take = [checker](const auto& change) { checker->notifications.Take(change.package); };
  service.OnStateChange(take).OnSystemSettingChange(take).OnPermissionChange(take);
  return service.Run();
}
