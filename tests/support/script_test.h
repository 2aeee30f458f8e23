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

// A message in JSON, or a session message as `start SESSION OPCODE:SSID,SSID OPCODE:SSID`, where
// each number or text is written as in JSON.
inline std::string SessionMessage(const std::string& text) {
  if (text[0] == '{' || text[0] == '[') {
    return text;
  }
  std::string json = Replace(text, "([:,])([^ ,]+)", R"($1{"id":$2})");
  json = Replace(json, R"( (\S+?):(\S+))", R"(,{"id":$1,"subsystems":[$2]})");
  return Replace(json, "(\\w+) ([^,]+),?(.*)",
                 R"({"req_type":"$1_session","session_id":$2,"opcodes":[$3]})");
}

inline int Abort(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  abort();
}

struct ScriptTest : ServiceTest {
  // Offers 0xa001 and 0xb002, and handles messages. From then on the callback returns 1 for events
  // whose line begins with `refused`. Before each event in the log are the locks that are held: s
  // for the session mutex, t for the ready-table mutex. The receive thread does not wait in its
  // pauses, but logs them.
  void Begin(int level, const std::string& messages = "", const std::string& refused = "none",
             orvd_task_function_t task = Abort) {
    SetDebugLevel(level);
    Init();
    Offer(0xa001, {1, 2, 3}, task);
    Offer(0xb002, {3, 4});
    SetLogHook([this](const std::string& line) {
      if (line.rfind("> ", 0) == 0) {
        is_service_supported(1, 1);  // blocks forever when its lock is held
        AddToLog(std::string("locks") + (IsHeld(session_lock) ? "s" : "") +
                 (IsHeld(table_lock) ? "t" : ""));
        if (std::this_thread::get_id() != test_thread) {
          FreezeClock([this](auto length) { return Pause(length / std::chrono::microseconds(1)); });
        }
      }
    });
    orvd_send_to_manager_raw("begun");
    peer.NextOf("begun");
    EXPECT_NE(CountLogged("Client received!!!"), 0U);
    EXPECT_EQ(CountLogged("Waiting for recv from server") != 0, level >= 3);
    ClearLog();
    Handle(messages);
    Recorded();
    recorder.Return(refused, 1);
  }
  ~ScriptTest() override { SetLogHook(nullptr); }

  // The Manager listens again after the second failed attempt to reconnect.
  bool Pause(int64_t microseconds) {
    AddToLog("pause " + std::to_string(microseconds));
    if (CountLogged("pause 50000") == 2) {
      peer.Listen();
    }
    return true;
  }

  // The service handles messages of the Manager, which are separated by ';'. A message is JSON, or
  // `start SESSION OPCODE:SSID,SSID OPCODE:SSID`, where each number or text is as in JSON.
  void Handle(const std::string& messages) {
    std::istringstream stream(messages);
    for (std::string message; std::getline(stream >> std::ws, message, ';');) {
      peer.Send(SessionMessage(message));
      Settle();
    }
  }

  // Compares what has happened, and what these messages cause. Each line of `expected` follows a
  // line end or '|'.
  void Expect(const std::string& messages, const std::string& expected) {
    Handle(messages);
    EXPECT_EQ("\n" + Recorded(), Replace(expected, "[|]", "\n") + "\n");
  }

  // Returns the shortened log since the last call. A line on a sent message is replaced by the
  // message that the peer received. Lines on waiting are moved to the end, because the order of
  // these lines and those of the receive thread varies.
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
         {std::pair("locks(.*)\n", "$1"),
          {"(Client received|Waiting|recv_msg|Unknown request type 'fence|Communication).*", ""},
          {"_fd (is )?[0-9]+", "_fd"},
          {"(JSON failure) .*(\n  .*)*", "$1"},
          {R"(."req_type":"(\w+)_session","session_id":(\d+),"Result":)", "< $1 $2 "},
          {"ession 5 with 0x0000", "~"},
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
