// What the link does with a message, and what it asks of the other subsystems. dispatch.cpp is the
// only place of the link that names them.

#pragma once

#include <json/value.h>

#include <string_view>

#include "link/connection.h"
#include "orvd_types.h"

// What the receive loop does after a message.
enum class NextAction { kContinue, kGrowBuffer, kEndThread };

// Handles one message by its "req_type".
NextAction Dispatch(Json::Value& message);

// Tells every ready opcode, in ascending order, with the ready-table mutex held.
void TellReadyOpcodes(orvd_req_t& notification);

// The Manager has gone.
void EndAllSessions();
// The Manager is back.
void TellReconnected();
// The service deinitialises: its registered pairs and ready opcodes are forgotten.
void ForgetRegistrations();
