// The permissions of one session, as far as they are known.

#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "IOrvdClient.h"
#include "orvex/detail/escaped.h"
#include "orvex/detail/largest_packet.h"

namespace orvex::detail {

// Asks the Manager. An empty result means that it did not answer for each permission. For a query
// that it cannot send, the library returns the same as for refused permissions. So a query that no
// packet takes is not tried. A query that fails for lack of a connection does no harm, because the
// session ends then.
inline std::vector<bool> AskForPermissions(uint32_t session, std::vector<std::string> permissions) {
  constexpr std::size_t kLargestFixedQuery = 150;  // without the permissions
  constexpr std::size_t kQuotes = 3;               // and the comma
  const std::size_t size = permissions.size();
  std::size_t packet_size = kLargestFixedQuery;
  for (std::string& permission : permissions) {
    permission = Escaped(permission);
    packet_size += permission.size() + kQuotes;
  }
  if (packet_size > LargestPacket()) {
    return {};
  }
  std::vector<bool> granted = orvd_permission_query(session, std::move(permissions));
  if (granted.size() != size) {
    granted.clear();
  }
  return granted;
}

// Asks for each permission once. Tasks that ask at the same time share one question. The session
// table holds one cache for each session; a cache that has left the table keeps nothing for a later
// session with the same id. Any thread that may wait for the Manager.
class PermissionCache {
 public:
  bool AreAllGranted(uint32_t session, const std::vector<std::string>& permissions) {
    Questions all;
    Questions own;  // those that this thread asks
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      for (const std::string& permission : permissions) {
        std::shared_ptr<Question> question = Find(questions_, permission);
        if (question == nullptr) {
          question = Find(own, permission);
        }
        if (question == nullptr) {
          question = std::make_shared<Question>(Question{permission});
          own.push_back(question);
        } else if (question->is_done && !question->is_granted) {
          return false;
        }
        all.push_back(std::move(question));
      }
      questions_.insert(questions_.end(), own.begin(), own.end());
    }
    if (!own.empty()) {
      Ask(session, own);
    }
    return Await(all);
  }

  // A question under way is answered to those who wait for it already, and is not kept.
  void Forget(const std::string& permission) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Keep([&permission](const auto& question) { return question->permission != permission; });
  }

 private:
  struct Question {
    std::string permission;
    bool is_done = false;
    bool is_granted = false;
  };
  using Questions = std::vector<std::shared_ptr<Question>>;

  static std::shared_ptr<Question> Find(const Questions& questions, const std::string& permission) {
    for (const auto& question : questions) {
      if (question->permission == permission) {
        return question;
      }
    }
    return nullptr;
  }

  // Forgets all other questions.
  template <typename Predicate>
  void Keep(Predicate is_kept) {
    questions_.erase(std::partition(questions_.begin(), questions_.end(), is_kept),
                     questions_.end());
  }

  void Ask(uint32_t session, const Questions& own) {
    std::vector<bool> granted;
    try {
      std::vector<std::string> permissions;
      for (const auto& question : own) {
        permissions.push_back(question->permission);
      }
      granted = AskForPermissions(session, std::move(permissions));
    } catch (...) {
      Answer(own, {});
      throw;
    }
    Answer(own, granted);
  }

  void Answer(const Questions& own, const std::vector<bool>& granted) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (std::size_t i = 0; i < own.size(); ++i) {
      own[i]->is_done = true;
      own[i]->is_granted = !granted.empty() && granted[i];
      if (granted.empty()) {
        Keep([&](const auto& question) { return question != own[i]; });
      }
    }
    answered_.notify_all();
  }

  bool Await(const Questions& questions) {
    std::unique_lock<std::mutex> lock(mutex_);
    for (const auto& question : questions) {
      answered_.wait(lock, [&question] { return question->is_done; });
      if (!question->is_granted) {
        return false;
      }
    }
    return true;
  }

  std::mutex mutex_;
  std::condition_variable answered_;
  Questions questions_;
};

}  // namespace orvex::detail
