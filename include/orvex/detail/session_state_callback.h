// The layer's session-state callback: every event of every offer comes in here.

#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "orvd_types.h"
#include "orvex/changes.h"
#include "orvex/detail/core.h"
#include "orvex/detail/handler_scope.h"
#include "orvex/detail/link_events.h"
#include "orvex/detail/task_slots.h"

namespace orvex::detail {

// The library may call back with user data of an offer that does not exist any more. So the user
// data is no pointer, but the number of the slot and the epoch.
static_assert(kSlotBits + kEpochBits <= 32, "both must fit into a pointer of 32 bits");

inline void* UserData(std::size_t slot, Epoch epoch) noexcept {
  const auto number = static_cast<uintptr_t>(slot) << kEpochBits | epoch;
  return reinterpret_cast<void*>(number);  // NOLINT(performance-no-int-to-ptr): see above
}
inline std::size_t SlotOf(const void* user_data) noexcept {
  return reinterpret_cast<uintptr_t>(user_data) >> kEpochBits;
}
inline Epoch EpochOf(const void* user_data) noexcept {
  return static_cast<Epoch>(reinterpret_cast<uintptr_t>(user_data) & kEpochMask);
}

// One event of one offer. The library's receive thread calls it. The library holds a lock during
// most events, so nothing here waits, and no lock of the layer is held while a handler runs.
class Event {
 public:
  Event(const Offer& offer, const orvd_req_t& req, Epoch epoch)
      : offer_(offer), core_(offer.core), req_(req), epoch_(epoch) {}

  // Returns what the library takes as the callback's result.
  int Handle() {
    switch (req_.type) {
      case ORVD_SESSION_START:
        return Start() ? 0 : -1;
      case ORVD_SESSION_READY:
        Ready();
        return 0;
      case ORVD_SESSION_END:
        End();
        return 0;
      case ORVD_TERMINATED:
        core_.EndAllSessions();
        core_.link->Set(epoch_, &LinkState::is_terminated);
        return 0;
      case ORVD_RECONNECTED:
        core_.link->Set(epoch_, &LinkState::is_reconnected);
        return 0;
      case ORVD_PERMISSION_CHANGE:
      case ORVD_STATE_CHANGE:
      case ORVD_SYSTEM_SETTING_CHANGE:
        if (offer_.is_lowest) {  // every offer is told
          Notify();
        }
        return 0;
    }
    return 0;
  }

 private:
  // A pair that the table still has was withdrawn by the library, which tells nobody of that.
  bool Start() {
    End();
    const auto pair = core_.sessions.BeginStart(req_);
    const bool has_agreed = AskAuthor(*pair);
    if (!core_.sessions.FinishStart(req_, pair, has_agreed)) {
      if (has_agreed) {
        core_.TellEnd(*pair);
      }
      return false;
    }
    if (has_agreed && !core_.link->IsCurrent(epoch_)) {  // the service has left meanwhile
      End();
      return false;
    }
    return has_agreed;
  }

  bool AskAuthor(Pair& pair) const noexcept {
    const HandlerScope scope;
    try {
      return !offer_.on_session_start || offer_.on_session_start(pair.session);
    } catch (const std::exception& exception) {
      core_.log.Error({"OnSessionStart threw: ", exception.what(), "; the pair is refused"});
    } catch (...) {
      core_.log.Error({"OnSessionStart threw an exception; the pair is refused"});
    }
    return false;
  }

  void Ready() {
    if (const auto pair = core_.sessions.Find(req_)) {
      core_.Call("OnSessionReady", offer_.on_session_ready, pair->session);
    }
  }

  void End() {
    if (const auto pair = core_.sessions.Remove(req_)) {
      core_.TellEnd(*pair);
    }
  }

  void Notify() {
    if (req_.type == ORVD_PERMISSION_CHANGE) {
      if (const auto permissions = core_.sessions.Permissions(req_.session_id)) {
        permissions->Forget(req_.permission);
      }
      core_.Call(
          "OnPermissionChange", core_.handlers.on_permission_change,
          PermissionChange{req_.session_id, req_.permission, req_.status != 0, req_.package});
    } else if (req_.type == ORVD_STATE_CHANGE) {
      core_.Call("OnStateChange", core_.handlers.on_state_change, Split());
    } else {
      core_.Call("OnSystemSettingChange", core_.handlers.on_system_setting_change, Split());
    }
  }

  // The library joins the name of a state and its value by a colon.
  StateChange Split() const {
    const std::size_t colon = req_.state.find(':');
    const bool has_value = colon != std::string::npos;
    return {req_.session_id, req_.state.substr(0, colon),
            has_value ? req_.state.substr(colon + 1) : std::string(), req_.package};
  }

  const Offer& offer_;
  Core& core_;
  const orvd_req_t& req_;
  const Epoch epoch_;
};

inline int OnSessionState(int /*service_id*/, orvd_req_t* req, void* user_data) noexcept {
  const Epoch epoch = EpochOf(user_data);
  const int late = req->type == ORVD_SESSION_START ? -1 : 0;
  try {
    const std::shared_ptr<Offer> offer = TaskSlots::Find(SlotOf(user_data));
    if (offer == nullptr) {
      return late;
    }
    // Before the epoch is looked at: whoever ends an epoch waits for the marked threads.
    ReceiveThreadMark::MarkThisThread(offer->core.link, epoch);
    return offer->core.link->IsCurrent(epoch) ? Event(*offer, *req, epoch).Handle() : late;
  } catch (...) {  // no memory
    return late;
  }
}

}  // namespace orvex::detail
