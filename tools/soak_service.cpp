// The service of the stress test: answers each task with a hash of its arguments, and sends queries
// all the time.

#include <android-base/properties.h>
#include <fcntl.h>
#include <json/writer.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <thread>
#include <vector>

#include "IOrvdClient.h"
#include "orvex/arguments.h"
#include "soak.h"

namespace soak {
namespace {

using Milliseconds = std::chrono::milliseconds;

constexpr int kReconnected = SIGHUP;
constexpr unsigned kOfferLimit = 30;  // seconds
constexpr uint32_t kAskers = 3;

std::atomic<uint64_t> g_queries{0};
std::atomic<uint64_t> g_wrong{0};
std::atomic<uint64_t> g_cut{0};
std::atomic<uint64_t> g_notifications{0};
std::atomic<uint32_t> g_connection{1};  // even: the Manager is connected and all opcodes are ready
std::atomic<bool> g_stopping{false};

// --- The arguments as one text, made from the decoded arguments.

template <typename T>
std::string TextOf(const T& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    return value;
  } else if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_same_v<T, double>) {
    return Json::valueToString(value);
  } else {
    return std::to_string(value);
  }
}

template <typename T>
std::string OneText(const ValuesInterface& holder) {
  return TextOf<T>(static_cast<const ParamValues<T>&>(holder).value);
}

template <typename T>
std::string ManyText(const ValuesInterface& holder) {
  std::string text;
  for (const auto& element : static_cast<const ParamValues<std::vector<T>>&>(holder).value) {
    text += TextOf<T>(element) + ",";
  }
  return text;
}

struct ReaderOfType {
  std::string (*one)(const ValuesInterface&);
  std::string (*many)(const ValuesInterface&);
};

template <typename T>
constexpr ReaderOfType kReaderOf{OneText<T>, ManyText<T>};

constexpr ReaderOfType kReaders[] = {
    kReaderOf<uint8_t>,    kReaderOf<uint16_t>,    kReaderOf<uint32_t>, kReaderOf<uint64_t>,
    kReaderOf<int8_t>,     kReaderOf<int16_t>,     kReaderOf<int32_t>,  kReaderOf<int64_t>,
    kReaderOf<double>,     kReaderOf<std::string>, kReaderOf<bool>,     kReaderOf<int32_t>,
    kReaderOf<std::string>};

using Holder = std::shared_ptr<ValuesInterface>;

std::string MapText(const orvex_typed_map_t* typed, const orvex_value_map_t* values);

std::string EntryText(orvex_data_type_t type, const Holder& typed, const Holder& value) {
  if (type == ORVEX_STRUCT) {
    return MapText(static_cast<const ParamValues<orvex_typed_map_t*>&>(*typed).value,
                   static_cast<const ParamValues<orvex_value_map_t*>&>(*value).value);
  }
  if (typed != value) {
    return "the queues differ";
  }
  return type > ORVEX_STRUCT ? kReaders[type - ORVEX_VECTOR_OF(ORVEX_UINT8)].many(*typed)
                             : kReaders[type - ORVEX_UINT8].one(*typed);
}

std::string MapText(const orvex_typed_map_t* typed, const orvex_value_map_t* values) {
  if (typed == nullptr || values == nullptr || typed->size() != values->size()) {
    return typed == nullptr && values == nullptr ? "" : "the queues differ";
  }
  std::string text;
  for (const auto& [key, entry] : *typed) {
    text += std::to_string(key) + ":" + std::to_string(entry.first) + ":" +
            EntryText(entry.first, entry.second, values->at(key)) + ";";
  }
  return text;
}

// --- Queries

// A query may fail before the receive thread has detected the loss of the Manager, so this waits up
// to two seconds.
bool ConnectionWasLost(uint32_t before) {
  for (int i = 0; i < 200 && before % 2 == 0 && g_connection == before; ++i) {
    std::this_thread::sleep_for(Milliseconds(10));
  }
  return before % 2 != 0 || g_connection != before;
}

// An unexpected result is accepted only if all its elements are false or empty, and only if the
// connection was lost.
template <typename Element>
void Judge(const std::vector<Element>& result, const std::vector<Element>& expected,
           uint32_t connection) {
  const auto is_empty = [](const Element& element) { return element == Element(); };
  if (result == expected) {
    ++g_queries;
  } else if (std::all_of(result.begin(), result.end(), is_empty) && ConnectionWasLost(connection)) {
    ++g_cut;
  } else {
    ++g_wrong;
  }
}

void AskPermissions(uint32_t session_id, uint32_t count) {
  std::vector<std::string> permissions;
  std::vector<bool> expected;
  for (uint32_t number = 0; number < count + 2; ++number) {
    permissions.push_back(std::to_string(number));
    expected.push_back(Granted(session_id, number));
  }
  const uint32_t connection = g_connection;
  Judge(orvd_permission_query(session_id, permissions), expected, connection);
}

void AskInfos(uint32_t session_id, uint32_t count) {
  std::vector<std::string> items;
  std::vector<std::string> expected;
  for (uint32_t number = 0; number <= count; ++number) {
    items.push_back("item " + std::to_string(number));
    expected.push_back(InfoOf(session_id, items.back()));
  }
  const uint32_t connection = g_connection;
  Judge(count % 2 == 0 ? orvd_info_query(session_id, items) : orvd_info_monitor(session_id, items),
        expected, connection);
}

void AskAllTheTime(uint32_t asker) {
  for (uint32_t i = asker; !g_stopping; ++i) {
    i % 2 == 0 ? AskPermissions(i, i % 11) : AskInfos(i, i % 13);
    std::this_thread::sleep_for(Milliseconds(2));
  }
}

// --- Callbacks

int RunTask(_orvex_call_info_t* call, orvex_func_call_info_t args) {
  call->opcode = OpcodeText(OpcodeOf(call->subsys_id));
  call->name = args.func_name;
  call->ret = args.num_of_args;
  const std::string text = MapText(args.typed_queue, args.value_queue);
  call->result = R"("sum":")" + std::to_string(std::hash<std::string>{}(text)) + "\"";
  orvex::FreeStructMembers(args);
  if (call->transac_id % 4 == 0) {
    std::this_thread::sleep_for(Milliseconds(1 + call->transac_id / 4 % 20));
  }
  if (call->transac_id % 50 == 0) {
    AskPermissions(call->session_id, 1);
  }
  return 0;
}

int OnEvent(int /*service_id*/, orvd_req_t* req, void* /*user_data*/) {
  if (req->type == ORVD_TERMINATED) {
    ++g_connection;
  } else if (req->type == ORVD_RECONNECTED) {
    kill(getpid(), kReconnected);  // the main thread initialises again
  } else if (req->type == ORVD_PERMISSION_CHANGE || req->type == ORVD_STATE_CHANGE ||
             req->type == ORVD_SYSTEM_SETTING_CHANGE) {
    ++g_notifications;
  }
  return 0;
}

// --- The process

bool OfferOpcode(uint32_t id, uint32_t opcode, uint32_t first_ssid) {
  const std::string definition =
      "\x01ORVEX\x01\x02"
      R"({"Orvex":{"opcode":")" +
      OpcodeText(opcode) + R"(","subsystems":[{"id":)" + std::to_string(first_ssid) +
      R"(},{"id":)" + std::to_string(first_ssid + 1) + "}]}}";
  return _orvd_svc_register_auth(id, opcode, definition.c_str(), "soak") == 0 &&
         _orvd_svc_ready(id, opcode, OnEvent, nullptr, RunTask) == 0;
}

int Offer() {
  alarm(kOfferLimit);  // ends the process; the Manager's process reports that
  int id = orvd_svc_init();
  while (id < 0) {
    std::this_thread::sleep_for(Milliseconds(20));
    id = orvd_svc_init();
  }
  for (uint32_t i = 0; i < std::size(kOpcodes); ++i) {
    if (!OfferOpcode(static_cast<uint32_t>(id), kOpcodes[i], 2 * i + 1)) {
      std::quick_exit(1);
    }
  }
  ++g_connection;
  alarm(0);
  return id;
}

sigset_t BlockSignals() {
  sigset_t awaited{};
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGTERM);
  sigaddset(&awaited, kReconnected);
  pthread_sigmask(SIG_BLOCK, &awaited, nullptr);  // threads inherit it, so it is set before them
  return awaited;
}

// The library's log lines go to standard error on the host. The stress test does not need them.
void SilenceLog() {
  const int null_device = open("/dev/null", O_WRONLY | O_CLOEXEC);
  static_cast<void>(dup2(null_device, STDERR_FILENO));
  android::base::SetProperty("persist.vendor.orvex.clientlib.debug_level", "0");
}

void Serve(const sigset_t& awaited) {
  int received = kReconnected;
  while (received == kReconnected) {
    const int id = Offer();
    sigwait(&awaited, &received);
    if (received == kReconnected) {
      orvd_svc_deinit(static_cast<unsigned>(id));
    }
  }
}

}  // namespace

void RunService(int report) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  mallopt(M_ARENA_MAX, 1);  // many arenas grow for minutes, which looks like a leak
  const sigset_t awaited = BlockSignals();
  SilenceLog();
  std::vector<std::thread> askers;
  for (uint32_t i = 0; i < kAskers; ++i) {
    askers.emplace_back(AskAllTheTime, i * 1000);
  }
  Serve(awaited);
  g_stopping = true;
  for (std::thread& asker : askers) {
    asker.join();
  }
  const ServiceCounts counts{g_queries, g_wrong, g_cut, g_notifications};
  const bool written = write(report, &counts, sizeof(counts)) == sizeof(counts);
  // The library's threads may still run, so no object is destroyed.
  std::quick_exit(written ? 0 : 1);
}

}  // namespace soak
