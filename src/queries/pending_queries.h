// The queries that wait for their answers, by query id.

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>

#include "base/mutex.h"
#include "base/pending_answer.h"

namespace orvd_client {

inline constexpr std::chrono::seconds kQueryLimit{3};

// A Record has the members `response` (a shared vector of results), `cv` and `received`.
template <typename Record>
class PendingQueries {
 public:
  using Results = typename decltype(Record::response)::element_type;

  Record Insert(uint32_t query_id) {
    const MutexLock lock(mutex_);
    return pending_
        .try_emplace(query_id, Record{std::make_shared<Results>(),
                                      std::make_shared<std::condition_variable>(),
                                      std::make_shared<bool>(false)})
        .first->second;
  }

  void Erase(uint32_t query_id) {
    const MutexLock lock(mutex_);
    pending_.erase(query_id);
  }

  // Waits for the answer, for three seconds at most. Removes the record and returns the results
  // that have arrived, which are empty if there is no answer. Calls `log` last, with the mutex
  // held.
  template <typename Log>
  Results WaitForResults(uint32_t query_id, const Record& record, Log log) {
    MutexLock lock(mutex_);
    AwaitUntil(record, lock, std::chrono::steady_clock::now() + kQueryLimit);
    Results results = *record.response;
    pending_.erase(query_id);
    log();
    return results;
  }

  // Calls `fill` to write the results of a waiting query, and wakes its caller. Drops the answer if
  // no query with this id waits.
  template <typename Fill>
  void Answer(uint32_t query_id, Fill fill) {
    const MutexLock lock(mutex_);
    const auto found = pending_.find(query_id);
    if (found == pending_.end()) {
      return;
    }
    fill(*found->second.response);
    Deliver(found->second);
  }

 private:
  Mutex mutex_;
  std::map<uint32_t, Record> pending_ GUARDED_BY(mutex_);
};

}  // namespace orvd_client
