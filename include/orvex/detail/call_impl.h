// The functions of orvex/call.h.

#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "IOrvdClient.h"
#include "orvex/call.h"
#include "orvex/detail/escaped.h"
#include "orvex/detail/handler_scope.h"
#include "orvex/detail/inline.h"
#include "orvex/detail/permission_cache.h"
#include "orvex/detail/session_states.h"
#include "orvex/detail/session_table.h"
#include "orvex/failure.h"

namespace orvex {

ORVEX_INLINE Call::Call(detail::SessionTable& sessions,
                        std::shared_ptr<detail::SessionStates> states, uint32_t opcode,
                        const _orvex_call_info_t& record, const std::string& function,
                        const Arguments& arguments)
    : sessions_(sessions),
      states_(std::move(states)),
      opcode_(opcode),
      record_(record),
      function_(function),
      arguments_(arguments) {}

ORVEX_INLINE bool Call::Granted(const std::string& permission) const {
  return Granted(std::vector<std::string>{permission});
}

ORVEX_INLINE bool Call::Granted(const std::vector<std::string>& permissions) const {
  detail::HandlerScope::RefuseWaiting("Call::Granted");
  const auto known = sessions_.Permissions(session());
  if (permissions.empty()) {
    return true;
  }
  if (known != nullptr) {
    return known->AreAllGranted(session(), permissions);
  }
  // The session has ended. Nothing is kept for it.
  const std::vector<bool> granted = detail::AskForPermissions(session(), permissions);
  return !granted.empty() && std::find(granted.begin(), granted.end(), false) == granted.end();
}

ORVEX_INLINE std::string Call::Info(const std::string& item) const {
  detail::HandlerScope::RefuseWaiting("Call::Info");
  const auto results = orvd_info_query(session(), {detail::Escaped(item)});
  std::string text = "no answer";
  if (results.size() != 1 || parse_result_of_query_info(results.front(), text) != 0) {
    throw Failure("information item '" + item + "': " + text);
  }
  return text;
}

ORVEX_INLINE std::shared_ptr<void> Call::FindState(detail::StateTag tag) const {
  return states_ != nullptr ? states_->Find(tag) : nullptr;
}

}  // namespace orvex
