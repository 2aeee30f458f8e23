// Calls of the library that fail at its boundary with the system: the test executable's own socket,
// sendto, ... stand before the C library's. Of these the peer uses socket() alone, to listen.

#pragma once

#include <functional>

enum class Call { kSocket, kSendto, kRecvfrom, kThread, kCallRecord };

// The next `times` calls fail with `error`.
void FailNext(Call call, int error, int times = 1);

// Called once, before the next packet is sent, on the sending thread.
void OnNextPacket(std::function<void(int fd)> hook);
