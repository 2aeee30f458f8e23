// One pair of a session, as the session handlers of an offer are told of it. A service includes
// orvex/service.h.

#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "orvex/detail/state_tag.h"

namespace orvex {

// A pair: an opcode and a subsystem id, in a session. A session can have several pairs. Valid until
// the handler returns.
class Session {
 public:
  // The layer makes the sessions that handlers get.
  Session(uint32_t id, uint32_t opcode, uint32_t subsystem,
          std::shared_ptr<detail::SessionStates> states) noexcept;

  // The number by which the Manager knows the session.
  uint32_t id() const noexcept { return id_; }
  // The opcode of the pair.
  uint32_t opcode() const noexcept { return opcode_; }
  // The subsystem id of the pair.
  uint32_t subsystem() const noexcept { return subsystem_; }

  // Makes the session's state: one T for the session and the opcode, shared by all pairs of the
  // opcode in the session. When there is one already, returns that and ignores the arguments.
  // The state exists until the last pair has ended and the last task that began before has
  // returned. Its destructor can run on the receive thread, with a lock of the library held, so it
  // must return at once. Call::State<T>() finds it.
  template <typename T, typename... Arguments>
  T& Emplace(Arguments&&... arguments) {
    std::shared_ptr<T> state = State<T>();
    if (state == nullptr) {
      state = std::make_shared<T>(std::forward<Arguments>(arguments)...);
      AddState(&detail::state_tag<T>, state);
    }
    return *state;
  }

  // The state that Emplace<T>() made; null without one.
  template <typename T>
  std::shared_ptr<T> State() const {
    return std::static_pointer_cast<T>(FindState(&detail::state_tag<T>));
  }

 private:
  void AddState(detail::StateTag tag, std::shared_ptr<void> state);
  std::shared_ptr<void> FindState(detail::StateTag tag) const;

  uint32_t id_;
  uint32_t opcode_;
  uint32_t subsystem_;
  std::shared_ptr<detail::SessionStates> states_;
};

}  // namespace orvex
