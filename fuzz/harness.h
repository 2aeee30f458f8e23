// A service without a socket: packets reach the dispatch as if received, and what is sent goes nowhere.

#pragma once

#include <functional>
#include <string>

#include "IOrvdClient.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// What a target does with an input. The service is as below before each.
void TryInput(const std::string& input);

inline constexpr int32_t kServiceId = 7;
inline constexpr uint32_t kOpcode = 0x10;       // ready, with the subsystems 1 and 2
inline constexpr uint32_t kOtherOpcode = 0x20;  // to be registered and made ready
inline constexpr uint32_t kSession = 9;         // open, with (kOpcode, 1) ready

// What a thread does. The library starts threads for tasks alone.
enum Role { kRunsTask, kHandlesPackets, kCalls };
inline thread_local Role role = kRunsTask;
inline bool sends_fail = false;

// Ends the process with `what` unless `holds`.
void Require(bool holds, const char* what);

// The service's callback for events; `user_data` is &sends_fail.
int OnState(int service_id, orvd_req_t* req, void* user_data);

// Handles a packet and the task that it starts, then checks what must hold between two packets.
// Lets pass only the exceptions that may end a service's process.
void Handle(const std::string& packet);

// Acts, then waits until a thread of that role has sent a message.
void AwaitMessage(Role sender, const std::function<void()>& act);
