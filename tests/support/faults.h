// Makes calls of the library into the C library fail: the test executable defines socket, sendto
// and so on, which replace the C library's. The peer uses only socket() of them, to listen.

#pragma once

#include <functional>

enum class Call { kSocket, kSendto, kRecvfrom, kThread, kCallRecord };

// The next `times` calls fail with `error`.
void FailNext(Call call, int error, int times = 1);

// Calls `hook` once, before the next packet is sent, on the sending thread.
void OnNextPacket(std::function<void(int fd)> hook);
