// The author's objects that belong to one session and opcode.

#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "orvex/detail/state_tag.h"

namespace orvex::detail {

// At most one object of each type. Any thread.
class SessionStates {
 public:
  // Null when there is none.
  std::shared_ptr<void> Find(StateTag tag) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [tag_of_object, object] : objects_) {
      if (tag_of_object == tag) {
        return object;
      }
    }
    return nullptr;
  }

  void Add(StateTag tag, std::shared_ptr<void> object) {
    const std::lock_guard<std::mutex> lock(mutex_);
    objects_.emplace_back(tag, std::move(object));
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<StateTag, std::shared_ptr<void>>> objects_;
};

}  // namespace orvex::detail
