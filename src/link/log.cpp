#include "link/log.h"

#include <cstring>

std::atomic<int> gDebugLevel{0};

const char* ErrorText(int error) {
  return strerror(error);
}
