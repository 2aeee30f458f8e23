// The supported pairs (opcode, subsystem id): the Manager has accepted their registration.

#pragma once

#include <cstdint>

#include "link/generation.h"

namespace orvd_client {

// Adds the pair. Returns false, and adds nothing, if the generation has ended. A deinitialisation
// ends the generation before it removes all pairs, so no pair remains.
bool AddSupportedPair(Generation generation, uint32_t opcode, uint32_t ssid);

}  // namespace orvd_client
