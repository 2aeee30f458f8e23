// Chooses where the layer's functions are compiled.
//
// By default they are inline: a service includes orvex/service.h and needs nothing else. With
// ORVEX_SEPARATE_COMPILATION defined for every source file of a service, the headers only declare
// them, and one source file, which includes orvex/implementation.h, compiles them.

#pragma once

#ifdef ORVEX_SEPARATE_COMPILATION
#define ORVEX_INLINE
#else
#define ORVEX_INLINE inline
#endif
