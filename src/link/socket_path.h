// Which of the Manager's two sockets this process belongs to.

#pragma once

#include <atomic>

extern std::atomic<bool> gDedicatedChannel;
extern std::atomic<bool> gMarkersEnabled;

// Decides by build type, the calling thread's name and the vendor's properties. On debuggable
// builds sets both flags; on others leaves them.
const char* ChooseSocketPath();
