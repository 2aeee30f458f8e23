// A script lists messages of the Manager and calls of the service. The test compares one text with
// the expected text: all log lines, sent messages and events of the callback.

#pragma once

#include <android/log.h>
#include <json/json.h>

#include <optional>
#include <regex>
#include <thread>

#include "orvex_simulator/json_text.h"
#include "link/send.h"
#include "sessions/exec_task.h"
#include "sessions/session_end.h"
#include "sessions/session_start.h"
#include "sessions/session_state.h"
#include "sessions/terminate_sessions.h"
#include "support/frozen_clock.h"
#include "support/held_locks.h"
#include "support/service_fixture.h"

// The callback returns 1 for events whose line begins with `refused`. `before` runs before `script`
// and is not compared. Lines of `expected` are separated by '|' or a line end.
struct Script {
  int level;
  std::string name, refused, before, script, expected;
  friend std::ostream& operator<<(std::ostream& out, const Script& row) { return out << row.name; }
};

inline std::string Replace(const std::string& text, const char* pattern, const char* by) {
  return std::regex_replace(text, std::regex(pattern), by);
}

inline int Abort(_orvex_call_info_t* /*call*/, orvex_func_call_info_t /*args*/) {
  abort();
}

struct ScriptTest : ServiceTest {
  // Offers 0xa001 and 0xb002. Events and pauses of the receive thread are recorded between the log
  // lines. Before an event are the locks that are held: s for the session mutex, t for the
  // ready-table mutex.
  void Begin(int level, orvd_task_function_t task = Abort) {
    SetDebugLevel(level);
    Init();
    Offer(0xa001, {1, 2, 3}, task);
    Offer(0xb002, {3, 4});
    recorder.SetHook([this](const orvd_req_t&) {
      is_service_supported(1, 1);  // blocks forever when its lock is held
      const std::string session = IsHeld(session_lock) ? "s" : "";
      const std::string locks = session + (IsHeld(table_lock) ? "t" : "");
      const std::string event = recorder.events();
      recorder.Clear();
      if (std::this_thread::get_id() != test_thread) {
        FreezeClock([this](auto length) { return Pause(length / std::chrono::microseconds(1)); });
      }
      Note(locks + "> " + event);  // last: the test may end after this line
    });
    orvd_send_to_manager_raw("begun");
    peer.NextOf("begun");
    EXPECT_NE(CountLogged("Client received!!!"), 0U);
    ClearLog();
  }

  static void Note(const std::string& line) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s", line.c_str());
  }

  // The Manager listens again after the second failed attempt to reconnect.
  bool Pause(int64_t microseconds) {
    Note("pause " + std::to_string(microseconds));
    if (CountLogged("pause 50000") == 2) {
      peer.Listen();
    }
    return true;
  }

  // JSON, or `start SESSION ID:SSID,SSID ID:SSID`.
  static std::string Message(const std::string& text) {
    if (text.find_first_of("{[") == 0) {
      return text;
    }
    std::string json = Replace(text, "([:,])([^ ,]+)", R"($1{"id":$2})");
    json = Replace(json, R"( (\S+?):(\S+))", R"(,{"id":$1,"subsystems":[$2]})");
    return Replace(json, "(\\w+) ([^,]+),?(.*)",
                   R"({"req_type":"$1_session","session_id":$2,"opcodes":[$3]})");
  }

  // `VERB SESSION ITEM,ITEM`
  template <typename Query>
  static std::string Ask(Query query, const std::string& text) {
    std::istringstream words(text.substr(text.find(' ')));
    uint32_t session_id = 0;
    words >> session_id >> std::ws;
    std::vector<std::string> items;
    for (std::string item; std::getline(words, item, ',');) {
      items.push_back(item);
    }
    std::ostringstream results;
    for (const auto& result : query(session_id, items)) {
      results << (results.tellp() == 0 ? "" : ",") << result;
    }
    return results.str();
  }

  std::string Call(const std::string& verb, const std::string& text) const {
    if (verb == "permission") {
      return Ask(orvd_permission_query, text);
    }
    if (verb == "info" || verb == "monitor") {
      return Ask(verb == "info" ? orvd_info_query : orvd_info_monitor, text);
    }
    if (verb == "register" || verb == "define") {
      const std::string blob = (verb == "define" ? "\x02" : "") + text.substr(verb.size() + 1);
      return std::to_string(_orvd_svc_register_auth(kServiceId, 0x1000, blob.c_str(), "t"));
    }
    Json::Value message = orvd::ParseObject(Message(text));
    return std::to_string(verb == "init"        ? orvd_svc_init()
                          : verb == "deinit"    ? orvd_svc_deinit(message["session_id"].asUInt())
                          : verb == "alone"     ? (WaitForThreads(threads) ? 1 : 0)
                          : verb == "terminate" ? terminate_sessions()
                          : verb == "reconnect" ? send_reconnection_notification()
                          : verb == "start"     ? handle_session_start(message)
                                                : handle_session_end(message));
  }

  void Do(const std::string& step) {
    const std::string verb = step.substr(0, step.find(' '));
    const std::string rest = step.substr(std::min(step.size(), verb.size() + 1));
    if (verb == "level") {
      SetDebugLevel(std::stoi(rest));
    } else if (verb == "rule") {
      peer.SetRule(orvd::KindOf(rest), [rest](auto) { return std::optional(rest); });
    } else if (verb == "lose") {
      peer.StopListening();
      peer.HangUpForWriting();
      EXPECT_TRUE(WaitLogged("> reconnected 0x0000a001::0\n"));
    } else if (verb[0] == '=') {
      try {
        Note("= " + Call(verb.substr(1), step.substr(1)));
      } catch (const Json::LogicError&) {
        Note("= throws");
      }
    } else {
      peer.Send(Message(step));
      Settle();
    }
  }

  // Runs the steps of a script, which are separated by ';'. A step is a message from the Manager or
  // a word that Do() handles. After '=' is a call; its result is recorded. Returns Recorded().
  std::string Play(const std::string& script) {
    std::istringstream steps(script);
    for (std::string step; std::getline(steps >> std::ws, step, ';');) {
      Do(step);
    }
    return Recorded();
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
    text = Replace(
        text, "(Client received|Waiting|recv_msg|Unknown request type 'fence|Communication).*", "");
    text = Replace(text, "_fd (is )?[0-9]+", "_fd");
    text = Replace(text, "(JSON failure) .*(\n  .*)*", "$1");
    text = Replace(text, R"(."req_type":"(\w+)_session","session_id":(\d+),"Result":)", "< $1 $2 ");
    return Replace(Replace(Replace(text, "ession 5 with 0x0000", "~"), "\n+", "\n"), "^\n", "");
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

struct WholeScript : ScriptTest, testing::WithParamInterface<Script> {};
TEST_P(WholeScript, GivesTheExpectedText) {
  const auto& [level, name, refused, before, script, expected] = GetParam();
  Begin(level);
  Play(before);
  recorder.Return(refused, 1);
  EXPECT_EQ(Play(script), Replace(expected, "[|]", "\n") + "\n");
}
