// Hands one answer from the receive thread over to a waiting caller.
//
// Every pending record has the members `cv` and `received` beside its result. All three are shared
// pointers, because the caller and the receive thread may use them after the record has left its
// table. One mutex guards the flag and the result on both sides, so no wake-up is lost.

#pragma once

#include <chrono>
#include <condition_variable>

#include "base/mutex.h"

namespace orvd_client {

// Wakes the waiting caller. Call it with the result stored and the mutex held.
template <typename Record>
void Deliver(const Record& record) {
  *record.received = true;
  record.cv->notify_one();
}

// Waits without limit.
template <typename Record>
void Await(const Record& record, MutexLock& lock) {
  while (!*record.received) {
    record.cv->wait(lock.native());
  }
  *record.received = false;
}

// Waits until `deadline` at most. The record must not be used again.
template <typename Record>
void AwaitUntil(const Record& record, MutexLock& lock,
                std::chrono::steady_clock::time_point deadline) {
  while (!*record.received &&
         record.cv->wait_until(lock.native(), deadline) != std::cv_status::timeout) {
  }
}

// Returns whether no caller waits on the record: then only its table holds it. An answer that was
// delivered to such a record must not be used for the next request.
template <typename Record>
bool HasNoWaiter(const Record& record) {
  return record.received.use_count() == 1;
}

}  // namespace orvd_client
