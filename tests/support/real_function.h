// Finds the C library's function when the test executable defines one with the same name.

#pragma once

#include <dlfcn.h>

// `own` only gives the type.
template <typename Function>
Function* RealFunction(Function* /*own*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
