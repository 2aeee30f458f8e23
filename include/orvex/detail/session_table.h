// The pairs that the author's session handlers were told of, and what belongs to their sessions.

#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "orvd_types.h"
#include "orvex/detail/permission_cache.h"
#include "orvex/detail/session_states.h"
#include "orvex/session.h"

namespace orvex::detail {

// One started pair, or one whose start handler runs.
struct Pair {
  Session session;
  std::shared_ptr<SessionStates> states;
  std::shared_ptr<PermissionCache> permissions;
  bool is_starting = true;
  bool is_removed = false;
};

// The mutex is never held while the author or the library is called, nor while a state is
// destroyed. Any thread.
class SessionTable {
 public:
  using Pairs = std::vector<std::shared_ptr<Pair>>;

  // Adds a pair whose start handler is about to run. It shares what belongs to its session with the
  // session's other pairs.
  std::shared_ptr<Pair> BeginStart(const orvd_req_t& req) {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto states = StatesOf(req.session_id, req.opcode);
    auto permissions = PermissionsOf(req.session_id);
    states = states ? states : std::make_shared<SessionStates>();
    permissions = permissions ? permissions : std::make_shared<PermissionCache>();
    auto pair = std::make_shared<Pair>(
        Pair{Session(req.session_id, req.opcode, req.ssid, states), states, permissions});
    const auto place = Place(req.session_id, req.opcode, req.ssid);
    if (IsAt(place, req)) {
      Removed(*place);
      *place = pair;
    } else {
      pairs_.insert(place, pair);
    }
    return pair;
  }

  // The start handler has returned. Returns false when the pair was removed meanwhile. A pair whose
  // start was refused is removed.
  bool FinishStart(const orvd_req_t& req, const std::shared_ptr<Pair>& pair, bool has_agreed) {
    const std::lock_guard<std::mutex> lock(mutex_);
    pair->is_starting = false;
    if (pair->is_removed) {
      return false;
    }
    if (!has_agreed) {
      pairs_.erase(Place(req.session_id, req.opcode, req.ssid));
    }
    return true;
  }

  // Null when the pair is not there.
  std::shared_ptr<Pair> Find(const orvd_req_t& req) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = Place(req.session_id, req.opcode, req.ssid);
    return IsAt(place, req) ? *place : nullptr;
  }

  // Removes the pair and returns it, for the caller to tell its end; null when it is not there. Of
  // several callers one gets the pair. A pair whose start handler runs is removed and not returned:
  // the thread that runs the handler tells its end.
  std::shared_ptr<Pair> Remove(const orvd_req_t& req) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto place = Place(req.session_id, req.opcode, req.ssid);
    if (!IsAt(place, req)) {
      return nullptr;
    }
    auto pair = Removed(*place);
    pairs_.erase(place);
    return pair;
  }

  // The same for all pairs, in the order of their sessions. A pair that is not returned is null.
  Pairs RemoveAll() {
    const std::lock_guard<std::mutex> lock(mutex_);
    Pairs all;
    all.swap(pairs_);
    for (auto& pair : all) {
      pair = Removed(pair);
    }
    return all;
  }

  // Null when the opcode has no pair in the session.
  std::shared_ptr<SessionStates> States(uint32_t session, uint32_t opcode) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return StatesOf(session, opcode);
  }

  // Null when the session is not open.
  std::shared_ptr<PermissionCache> Permissions(uint32_t session) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return PermissionsOf(session);
  }

 private:
  static std::shared_ptr<Pair> Removed(const std::shared_ptr<Pair>& pair) {
    pair->is_removed = true;
    return pair->is_starting ? nullptr : pair;
  }

  // The first pair that is not before this one.
  Pairs::iterator Place(uint32_t session, uint32_t opcode, uint32_t subsystem) {
    return std::partition_point(pairs_.begin(), pairs_.end(), [&](const auto& pair) {
      const Session& other = pair->session;
      return other.id() != session      ? other.id() < session
             : other.opcode() != opcode ? other.opcode() < opcode
                                        : other.subsystem() < subsystem;
    });
  }

  bool IsAt(Pairs::iterator place, const orvd_req_t& req) const {
    return place != pairs_.end() && (*place)->session.id() == req.session_id &&
           (*place)->session.opcode() == req.opcode && (*place)->session.subsystem() == req.ssid;
  }

  std::shared_ptr<SessionStates> StatesOf(uint32_t session, uint32_t opcode) {
    const auto place = Place(session, opcode, 0);
    const bool is_own = place != pairs_.end() && (*place)->session.id() == session &&
                        (*place)->session.opcode() == opcode;
    return is_own ? (*place)->states : nullptr;
  }

  std::shared_ptr<PermissionCache> PermissionsOf(uint32_t session) {
    const auto place = Place(session, 0, 0);
    const bool is_own = place != pairs_.end() && (*place)->session.id() == session;
    return is_own ? (*place)->permissions : nullptr;
  }

  std::mutex mutex_;
  Pairs pairs_;  // by session, opcode and subsystem
};

}  // namespace orvex::detail
