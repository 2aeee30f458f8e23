// A service without a socket. Packets go directly to the dispatch, and sent messages are discarded.

#pragma once

#include <functional>
#include <string>

#include "IOrvdClient.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Each target defines this function. It runs the target on one input. Before each input the service
// is reset to the state below.
void TryInput(const std::string& input);

inline constexpr int32_t kServiceId = 7;
inline constexpr uint32_t kOpcode = 0x10;       // ready; its subsystems 1 and 2 are supported
inline constexpr uint32_t kOtherOpcode = 0x20;  // not ready; its subsystem 1 is supported
inline constexpr uint32_t kSession = 9;         // open; its pair (kOpcode, 1) is ready

// What a thread does. The library starts threads only for tasks, so kRunsTask is the default.
enum Role { kRunsTask, kHandlesPackets, kCalls };
inline thread_local Role role = kRunsTask;
inline bool sends_fail = false;

// Ends the process with the text `what` when `holds` is false.
void Require(bool holds, const char* what);

// The service's session-state callback; `user_data` is &sends_fail.
int OnState(int service_id, orvd_req_t* req, void* user_data);

// Handles a packet, waits for the answer of the task that it starts, and checks the library's
// state. Catches only the exceptions that are allowed to end a service's process.
void Handle(const std::string& packet);

// Calls `act`, then waits until a thread with that role has sent a message.
void AwaitMessage(Role sender, const std::function<void()>& act);
