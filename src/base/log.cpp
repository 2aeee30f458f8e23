#include "base/log.h"

#include <cstring>

namespace orvd_client {

std::atomic<int> gDebugLevel{0};

const char* ErrorText(int error) {
  return strerror(error);
}

}  // namespace orvd_client
