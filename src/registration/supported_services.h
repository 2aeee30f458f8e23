// The (opcode, subsystem id) pairs that the Manager has accepted.

#pragma once

#include <cstdint>

#include "link/connection.h"

// Adds the pair, unless the generation is over. A deinitialisation removes all pairs after it has
// ended the generation, so none is left behind. Returns whether the pair is there.
bool AddSupportedPair(Generation generation, uint32_t opcode, uint32_t ssid);
