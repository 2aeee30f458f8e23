// The call of a function: where it comes from, and what its handler can ask the Manager. A service
// includes orvex/service.h.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "orvd_types.h"
#include "orvex/arguments.h"
#include "orvex/detail/state_tag.h"

namespace orvex {

namespace detail {
class SessionTable;
}

// Valid until the handler returns.
class Call {
 public:
  // The layer makes the calls that handlers get.
  Call(detail::SessionTable& sessions, std::shared_ptr<detail::SessionStates> states,
       uint32_t opcode, const _orvex_call_info_t& record, const std::string& function,
       const Arguments& arguments);
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // The session from which the call comes.
  uint32_t session() const noexcept { return record_.session_id; }
  // The subsystem id of the call.
  uint32_t subsystem() const noexcept { return record_.subsys_id; }
  // The opcode of the call.
  uint32_t opcode() const noexcept { return opcode_; }
  // The number of the task, by which the Manager assigns the answer. A packet trace shows it.
  int32_t transaction() const noexcept { return record_.transac_id; }
  // The name of the function, as the client gave it.
  const std::string& function() const noexcept { return function_; }
  // All arguments of the call.
  const Arguments& arguments() const noexcept { return arguments_; }

  // Whether the client behind the session holds the permission. The Manager is asked once for each
  // session and permission. The answer is forgotten when the Manager tells of a change of the
  // permission, when the session ends, and when the Manager is lost. A permission that the Manager
  // does not answer is not granted, and is asked for again the next time.
  // Waits for the answer for three seconds at most. Before that, it waits without limit while the
  // Manager does not read from the socket. Throws std::logic_error in a session, notification or
  // loss handler.
  bool Granted(const std::string& permission) const;
  // The same for several permissions: whether the client holds all of them.
  bool Granted(const std::vector<std::string>& permissions) const;
  // The same for several permissions in braces.
  bool Granted(std::initializer_list<const char*> permissions) const {
    return Granted(std::vector<std::string>(permissions.begin(), permissions.end()));
  }

  // The value of the information item in the context of the session. Throws Failure when the
  // Manager gives none. Waits like Granted, and is refused where Granted is.
  std::string Info(const std::string& item) const;

  // The state that a session handler made by Session::Emplace<T>(), shared with all other calls of
  // the session for this opcode. Null without one, and when the session had ended before the thread
  // of this call began. Any call can come too late, so a handler must test for null.
  template <typename T>
  std::shared_ptr<T> State() const {
    return std::static_pointer_cast<T>(FindState(&detail::state_tag<T>));
  }

 private:
  std::shared_ptr<void> FindState(detail::StateTag tag) const;

  detail::SessionTable& sessions_;
  const std::shared_ptr<detail::SessionStates> states_;
  const uint32_t opcode_;
  const _orvex_call_info_t& record_;
  const std::string& function_;
  const Arguments arguments_;
};

}  // namespace orvex
