// Queries that wait for their answers, by query id.

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>

#include "link/mutex.h"
#include "link/pending_answer.h"

inline constexpr std::chrono::seconds kQueryLimit{3};

// Record: `response` (shared vector of results), `cv`, `received`.
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

  // Waits for the answer, three seconds at most, takes the record out and returns what has come;
  // calls `log` last, with the mutex held.
  template <typename Log>
  Results Take(uint32_t query_id, const Record& record, Log log) {
    MutexLock lock(mutex_);
    AwaitUntil(record, lock, std::chrono::steady_clock::now() + kQueryLimit);
    Results results = *record.response;
    pending_.erase(query_id);
    log();
    return results;
  }

  // Has `fill` write the results of a query that still waits, and wakes it; an answer that nobody
  // waits for is dropped.
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
