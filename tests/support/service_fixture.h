// The fixture of most tests: a service and the Manager peer, connected over the real socket path.

#pragma once

#include <android-base/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "IOrvdClient.h"
#include "base/never_destroyed.h"
#include "orvex_simulator/manager_peer.h"
#include "orvex_simulator/messages.h"
#include "support/log_capture.h"

inline constexpr const char* kSharedPath = "/dev/socket/orvd";
inline constexpr const char* kDedicatedPath = "/dev/socket/orvex_one/orvd_one";
inline constexpr int kServiceId = 7;

void SetDebugLevel(int level);  // takes effect at the next orvd_svc_init

// Waits until `condition` is true. Returns false after kPatience.
bool Eventually(const std::function<bool()>& condition);

long CountEntries(const char* folder);
// Returns the number of threads of this process.
long Threads();
// Waits until this process has `count` threads. Tests use it to see that a thread of the library
// has ended.
bool WaitForThreads(long count);

// The session-state callback of all opcodes. It adds each event to the log, as "> " and the type,
// pair, session, and the other fields that are not empty or 0. For example "> start 0x0000a001::1
// session 9" or "> state_change session 3 state screen:on package p".
class Recorder {
 public:
  static int Callback(int service_id, orvd_req_t* req, void* user_data);  // the recorder
  // From now on the callback returns `result` for events whose line begins with `event_prefix`, and
  // 0 for others.
  void Return(const std::string& event_prefix, int result);
  // Sets a function that the callback calls after it has logged the event.
  void SetHook(std::function<void(const orvd_req_t&)> hook);

 private:
  std::mutex mutex_;
  std::pair<std::string, int> result_;
  std::function<void(const orvd_req_t&)> hook_ = [](const orvd_req_t&) {};
};
// Returns the lines of the events in the log, without "> ".
std::string Events();

// Removes the socket at `path`, and returns `path`. A death test runs its fixture once more, in a
// second process, which takes the place of the first one's Manager.
const char* WithoutSocket(const char* path);

struct ServiceTest : testing::Test {
  static int Register(uint32_t opcode, std::initializer_list<uint32_t> ssids);
  static int Ready(uint32_t opcode, orvd_task_function_t task = nullptr);

  ServiceTest() { peer.AgreeToEverything(kServiceId); }
  ~ServiceTest() override { orvd_svc_deinit(kServiceId); }

  // Calls orvd_svc_init. Fails the test when the result is not kServiceId.
  void Init();
  // Calls Register and Ready; fails the test when one fails. Removes the received messages from the
  // peer.
  void Offer(uint32_t opcode, std::initializer_list<uint32_t> ssids,
             orvd_task_function_t task = nullptr);
  // The Manager starts the pair in the session and makes it ready. Fails the test when the start
  // fails.
  void OpenSession(uint32_t session_id, uint32_t opcode, uint32_t ssid);
  // Waits until the receive thread has handled all earlier messages of the peer. Needs a debug
  // level of 1 or more.
  void Settle();

  orvd::ManagerPeer peer{WithoutSocket(kSharedPath)};
  // Never destroyed: a receive thread may still run a callback after the test.
  Recorder& recorder = orvd_client::NeverDestroyed<Recorder>();
};
