// A service under test, and the Manager that it talks to over the real path.

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "IOrvdClient.h"
#include "base/never_destroyed.h"
#include "manager_peer.h"
#include "messages.h"
#include "support/log_capture.h"

inline constexpr const char* kSharedPath = "/dev/socket/orvd";
inline constexpr const char* kDedicatedPath = "/dev/socket/orvex_one/orvd_one";
inline constexpr int kServiceId = 7;

void SetDebugLevel(int level);  // takes effect at the next orvd_svc_init
void SetTestProperty(const std::string& name, const std::string& value);

// Polls until `condition` holds or the patience is over.
bool Eventually(const std::function<bool()>& condition);

long CountEntries(const char* folder);
// The threads of this process.
long Threads();
// Waits until there are so many: how a test sees that a thread of the library has ended.
bool WaitForThreads(long count);

// What the session-state callbacks were told, in order, across all opcodes. Pass Recorder::Callback
// with the recorder as user data.
class Recorder {
 public:
  static int Callback(int service_id, orvd_req_t* req, void* user_data);

  // Each event as one line: type, pair, session, and the other fields that are not empty or 0. For
  // example "start 0x0000a001::1 session 9" or "state_change session 3 state screen:on package p".
  std::string events() const;
  void Clear();
  bool WaitFor(const std::string& event) const;
  // What the callback returns from now on for events whose line begins so ("" for all); else 0.
  void Return(const std::string& event_prefix, int result);
  // Called inside the callback, after recording.
  void SetHook(std::function<void(const orvd_req_t&)> hook);

 private:
  mutable std::mutex mutex_;
  std::string events_;
  std::pair<std::string, int> result_;
  std::function<void(const orvd_req_t&)> hook_ = [](const orvd_req_t&) {};
};

class ServiceTest : public testing::Test {
 public:
  static int Register(uint32_t opcode, std::initializer_list<uint32_t> ssids);
  static int Ready(uint32_t opcode, orvd_task_function_t task = nullptr);

  ServiceTest() { peer.AgreeToEverything(kServiceId); }
  ~ServiceTest() override { orvd_svc_deinit(kServiceId); }

 protected:
  // orvd_svc_init against a peer that agrees to everything; fails the test unless it returns
  // kServiceId.
  void Init();
  // Both of them; fails the test unless they succeed. Leaves no messages in the peer.
  void Offer(uint32_t opcode, std::initializer_list<uint32_t> ssids,
             orvd_task_function_t task = nullptr);
  // Starts and readies the pair in the session; fails the test unless it is answered with success.
  void OpenSession(uint32_t session_id, uint32_t opcode, uint32_t ssid);
  // Returns when the receive thread has handled all that the peer sent before. Needs a debug level
  // of 1 or more.
  void Settle();

  orvd::ManagerPeer peer{kSharedPath};
  // Outlives the test: a receive thread that ends late may still be in a callback.
  Recorder& recorder = orvd_client::NeverDestroyed<Recorder>();
};
