// "ready_session".

#pragma once

#include <json/value.h>

namespace orvd_client {

// Makes started pairs ready. There is no answer. If a further pair follows a rejected pair, throws
// std::system_error, which ends the process on the receive thread.
void handle_session_ready(Json::Value& msg);

}  // namespace orvd_client
