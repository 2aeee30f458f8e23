// One packet through the whole dispatch.

#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ResetService();
  Handle(reinterpret_cast<const char*>(data), size);
  CheckService();
  return 0;
}
