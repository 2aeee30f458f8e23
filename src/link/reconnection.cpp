#include "link/reconnection.h"

#include <unistd.h>

#include <chrono>

#include "base/log.h"

using namespace orvd_client;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLimit{20};
constexpr useconds_t kPause = 50000;

}  // namespace

int orvd_client::ReconnectFor(Generation generation) {
  const Clock::time_point start = Clock::now();
  while (ConnectFor(generation) != 0) {
    if (Clock::now() > start + kLimit) {
      LOG_AT(kEveryLevel, "Failed to reconnect to manager due to time out");
      return -1;
    }
    usleep(kPause);
    if (CurrentGeneration() != generation) {
      return -1;
    }
  }
  const auto taken =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  LOG_AT(kEveryLevel, "reconnected to manager, gMgrSocket_fd is %d, total time to reconnect %lld",
         gMgrSocket_fd.load(), static_cast<long long>(taken));
  return 0;
}

int reconnect_to_manager() {
  return ReconnectFor(CurrentGeneration());
}
