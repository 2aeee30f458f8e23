// The functions of orvex/session.h.

#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "orvex/detail/inline.h"
#include "orvex/detail/session_states.h"
#include "orvex/session.h"

namespace orvex {

ORVEX_INLINE Session::Session(uint32_t id, uint32_t opcode, uint32_t subsystem,
                              std::shared_ptr<detail::SessionStates> states) noexcept
    : id_(id), opcode_(opcode), subsystem_(subsystem), states_(std::move(states)) {}

ORVEX_INLINE void Session::AddState(detail::StateTag tag, std::shared_ptr<void> state) {
  states_->Add(tag, std::move(state));
}

ORVEX_INLINE std::shared_ptr<void> Session::FindState(detail::StateTag tag) const {
  return states_->Find(tag);
}

}  // namespace orvex
