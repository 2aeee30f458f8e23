// Compares all that happens as one text: log lines, sent messages and events of the callback.

#pragma once

#include <android/log.h>
#include <json/json.h>

#include <functional>
#include <optional>
#include <regex>
#include <thread>

#include "link/send.h"
#include "orvex_simulator/json_text.h"
#include "sessions/exec_task.h"
#include "sessions/session_state.h"
#include "support/frozen_clock.h"
#include "support/held_locks.h"
#include "support/service_fixture.h"

inline std::string Replace(const std::string& text, const char* pattern, const char* by) {
  return std::regex_replace(text, std::regex(pattern), by);
}

// The message that starts, makes ready or ends pairs of a session. Ids may be any JSON values.
struct RequestedPairs {
  Json::Value opcode;
  std::vector<Json::Value> ssids;
};
inline std::string Session(const std::string& verb, const Json::Value& session_id,
                           const std::vector<RequestedPairs>& opcodes) {
  Json::Value message;
  message["req_type"] = verb + "_session";
  message["session_id"] = session_id;
  message["opcodes"] = Json::arrayValue;
  for (const RequestedPairs& pairs : opcodes) {
    Json::Value& opcode = message["opcodes"].append(Json::objectValue);
    opcode["id"] = pairs.opcode;
    for (const Json::Value& ssid : pairs.ssids) {
      opcode["subsystems"].append(Json::objectValue)["id"] = ssid;
    }
  }
  return orvd::WriteCompact(message);
}

inline int Abort(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  abort();
}

struct ScriptTest : ServiceTest {
  // Offers 0xa001 and 0xb002. From then on, before each event in the log are the mutexes that are
  // held, such as "[session]". After its first event the receive thread does not wait in its
  // pauses, but logs them, and the Manager listens again after the second failed reconnection.
  void Begin(int level, orvd_task_function_t task = Abort) {
    SetDebugLevel(level);
    Init();
    Offer(0xa001, {1, 2, 3}, task);
    Offer(0xb002, {3, 4});
    SetLogHook([this](const std::string& line) {
      if (line.rfind("> ", 0) == 0) {
        is_service_supported(1, 1);  // blocks forever when its lock is held
        AddToLog(std::string("held:") + (IsHeld(session_lock) ? "[session]" : "") +
                 (IsHeld(table_lock) ? "[ready table]" : ""));
        if (std::this_thread::get_id() != test_thread) {
          FreezeClock([this](auto length) {
            AddToLog("pause " + std::to_string(length / std::chrono::microseconds(1)));
            CountLogged("pause 50000") == 2 ? peer.Listen() : void();
            return true;
          });
        }
      }
    });
    EXPECT_NE(CountLogged("Client received!!!"), 0U);
    EXPECT_EQ(CountLogged("Waiting for recv from server") != 0, level >= 3);
    ClearLog();
  }
  ~ScriptTest() override { SetLogHook(nullptr); }

  // The service handles messages of the Manager, and their log is discarded.
  void Prepare(const std::vector<std::string>& messages) {
    for (const std::string& message : messages) {
      peer.Send(message);
      Settle();
    }
    Recorded();
  }

  // The service handles a message. Compares what has happened since the last comparison. `expected`
  // begins with a line end. In it, '|' is a line end too.
  void Expect(const std::string& message, const std::string& expected) {
    peer.Send(message);
    Settle();
    Expect(expected);
  }
  void Expect(const std::string& expected) {
    EXPECT_EQ("\n" + Recorded(), Replace(expected, "[|]", "\n") + "\n");
  }

  // Returns the log since the last call, without lines of the receive loop and numbers that vary. A
  // line on a sent message is replaced by the message that the peer received. The lines "waiting
  // for response" are moved to the end, because their order and that of the receive thread's lines
  // varies.
  std::string Recorded() {
    std::string text, waiting;
    for (const LogLine& line : Log()) {
      EXPECT_EQ(line.priority, ANDROID_LOG_ERROR) << line;
      const bool is_sent = line.text.rfind("client Sending message ", 0) == 0;
      (line.text[0] == 'w' ? waiting : text) += (is_sent ? Next() : line.text) + "\n";
    }
    text += waiting;
    ClearLog();
    for (const auto& [pattern, by] :
         {std::pair("held:(.*)\n", "$1"),
          {"(Client received|Waiting|recv_msg|Unknown request type 'fence|Communication).*", ""},
          {"_fd (is )?[0-9]+", "_fd"},
          {"(JSON failure) .*(\n  .*)*", "$1"},
          {"\n+", "\n"},
          {"^\n", ""}}) {
      text = Replace(text, pattern, by);
    }
    return text;
  }

  std::string Next() { return peer.Next().value_or("lost"); }

  const std::thread::id test_thread = std::this_thread::get_id();
  const long threads = Threads();  // without a receive thread
  pthread_mutex_t* const session_lock = FirstLockOf([] {
    Json::Value no_task;
    handle_exec_task(no_task, nullptr);
  });
  pthread_mutex_t* const table_lock = FirstLockOf([] { send_reconnection_notification(); });
};
