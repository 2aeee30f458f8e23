// Receive threads and task threads outlive main, so their state is never destroyed.

#pragma once

namespace orvd_client {

// Returns the one T of the process. Constructs it at the first call.
template <typename T>
T& NeverDestroyed() {
  static T& instance = *new T;
  return instance;
}

}  // namespace orvd_client
