// Chooses between the Manager's two sockets: the shared one and the dedicated one.

#pragma once

#include <atomic>
#include <optional>

namespace orvd_client {

extern std::atomic<bool> gDedicatedChannel;
extern std::atomic<bool> gMarkersEnabled;

// A flag without a value is not changed: only debuggable builds set the flags.
struct SocketPath {
  const char* path = nullptr;
  std::optional<bool> dedicated_channel;
  std::optional<bool> markers_enabled;
};

// Decides by the build type, the name of the calling thread, and the vendor's properties.
SocketPath ChooseSocketPath();

void SetFlags(const SocketPath& chosen);

}  // namespace orvd_client
