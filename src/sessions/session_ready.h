#pragma once

#include <json/value.h>

// Makes started pairs ready. There is no answer. A rejected pair that is followed by another raises
// std::system_error, which ends the process when it leaves the receive thread.
void handle_session_ready(Json::Value& msg);
