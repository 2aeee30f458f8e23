// Calls of the library that fail at its boundary with the system: the test executable's own socket,
// sendto, ... stand before the C library's. The peer uses others.

#pragma once

#include <cstddef>
#include <functional>

enum class Call { kSocket, kSendto, kRecvfrom, kThread, kCallRecord };

// The next `times` calls fail with `error`.
void FailNext(Call call, int error, int times = 1);
// How many are still to fail.
int StillToFail(Call call);

// Called before each packet is sent, on the sending thread. Empty again: no more.
void SetSendHook(std::function<void(int fd)> hook);
