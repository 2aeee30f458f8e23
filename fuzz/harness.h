// A service without a socket: messages reach the dispatch as if received, and what is sent goes nowhere.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "orvex_args.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Ends the process with `what` unless `holds`.
void Require(bool holds, const char* what);

// From now on sends fail, or succeed.
void MakeSendsFail(bool fail);
// How many queries have been sent.
int QueriesSent();

inline constexpr uint32_t kOpcode = 0x10;       // ready, with the subsystems 1 and 2
inline constexpr uint32_t kOtherOpcode = 0x20;  // to be registered and made ready
inline constexpr uint32_t kSession = 9;         // open, with (kOpcode, 1) ready

// The tables as described above, whatever was before.
void ResetService();

// Handles one packet and the task that it may start. Only the exceptions that may end a service's
// process are let pass; false when one of them did.
bool Handle(const char* packet, size_t size);

// What must hold between two packets.
void CheckService();

// Reads every value of a call, and deletes the member maps of its structs, as a service does.
void ReadAllArguments(const orvex_func_call_info_t& args);
