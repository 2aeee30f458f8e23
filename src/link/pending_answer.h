// The hand-over of one answer from the receive thread to a waiting caller.
//
// Every pending record has `cv` and `received` beside its result slot, all shared, so that they
// outlive the record in its table for as long as either side uses them. One mutex, the same on both
// sides, guards flag and slot; hence no wake-up is lost.

#pragma once

#include <chrono>
#include <condition_variable>

#include "link/mutex.h"

// Call with the slot filled and the mutex held.
template <typename Record>
void Deliver(const Record& record) {
  *record.received = true;
  record.cv->notify_one();
}

template <typename Record>
void Await(const Record& record, MutexLock& lock) {
  while (!*record.received) {
    record.cv->wait(lock.native());
  }
  *record.received = false;
}

template <typename Record>
void AwaitUntil(const Record& record, MutexLock& lock,
                std::chrono::steady_clock::time_point deadline) {
  while (!*record.received &&
         record.cv->wait_until(lock.native(), deadline) != std::cv_status::timeout) {
  }
  *record.received = false;
}

// A record that only its table holds has no caller behind it: what was delivered to it meanwhile
// answers nobody, and must not be taken for the answer to the next request.
template <typename Record>
bool IsUnattended(const Record& record) {
  return record.received.use_count() == 1;
}
