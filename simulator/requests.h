// The Manager's answers to what a service asks. The caller decides about permissions and items.

#pragma once

#include <json/value.h>

#include <functional>
#include <optional>
#include <string>

namespace orvd {

struct Knowledge {
  std::function<bool(const std::string& permission)> is_granted;
  std::function<std::optional<std::string>(const std::string& item)> value_of;
};

// The answer to INIT, AUTH, REDY, PERMISSION, INFO_QUERY or INFO_MNTR: it agrees to a registration.
// Returns nothing for other messages, and for those without their opcode or query id.
std::optional<std::string> AnswerRequest(const Json::Value& request, int service_id,
                                         const Knowledge& knowledge);

}  // namespace orvd
