#include "link/generation.h"

#include <atomic>
#include <optional>

namespace orvd_client {

Mutex gLinkMutex;

namespace {

std::atomic<Generation> current_generation{1};  // written with gLinkMutex held

// Set on receive threads only.
thread_local std::optional<Generation> served_generation;
// Set on every thread that initialises or deinitialises.
thread_local bool is_allowed_to_send = false;

}  // namespace

Generation CurrentGeneration() {
  return current_generation;
}

void BeginGeneration() {
  const MutexLock lock(gLinkMutex);
  ++current_generation;
}

void ServeGeneration(Generation generation) {
  served_generation = generation;
}

Generation ServedGeneration() {
  return served_generation.value_or(CurrentGeneration());
}

bool ThisThreadIsOutdated() {
  return served_generation.has_value() && *served_generation != CurrentGeneration();
}

void AllowThisThreadToSend() {
  is_allowed_to_send = true;
}

bool ThisThreadMaySend() {
  return !ThisThreadIsOutdated() || is_allowed_to_send;
}

}  // namespace orvd_client
