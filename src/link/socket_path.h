// Which of the Manager's two sockets this process belongs to.

#pragma once

#include <atomic>
#include <optional>

extern std::atomic<bool> gDedicatedChannel;
extern std::atomic<bool> gMarkersEnabled;

// Flags without a value stay as they are: only debuggable builds decide them.
struct SocketPath {
  const char* path = nullptr;
  std::optional<bool> dedicated_channel;
  std::optional<bool> markers_enabled;
};

// Decides by build type, the calling thread's name and the vendor's properties.
SocketPath ChooseSocketPath();

void SetFlags(const SocketPath& chosen);
