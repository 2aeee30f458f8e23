#include "registration/supported_services.h"

#include <set>
#include <utility>

#include "IOrvdClient.h"
#include "base/log.h"
#include "base/mutex.h"
#include "base/never_destroyed.h"

using namespace orvd_client;

namespace {

struct SupportedServices {
  Mutex mutex;
  std::set<std::pair<uint32_t, uint32_t>> pairs GUARDED_BY(mutex);
};

SupportedServices& Supported() {
  return NeverDestroyed<SupportedServices>();
}

void Add(uint32_t opcode, uint32_t ssid) REQUIRES(Supported().mutex) {
  if (Supported().pairs.emplace(opcode, ssid).second) {
    LOG_AT(kProgress, "Added service 0x%08x::%d", opcode, static_cast<int>(ssid));
  } else {
    LOG_AT(kProgress, "Duplicate service registration 0x%08x::%u", opcode, ssid);
  }
}

}  // namespace

bool orvd_client::AddSupportedPair(Generation generation, uint32_t opcode, uint32_t ssid) {
  const MutexLock lock(Supported().mutex);
  if (CurrentGeneration() != generation) {
    return false;
  }
  Add(opcode, ssid);
  return true;
}

int supported_services_add(uint32_t opcode, uint32_t ssid) {
  const MutexLock lock(Supported().mutex);
  Add(opcode, ssid);
  return 1;
}

bool is_service_supported(uint32_t opcode, uint32_t ssid) {
  const MutexLock lock(Supported().mutex);
  return Supported().pairs.count({opcode, ssid}) != 0;
}

void supported_services_clear() {
  const MutexLock lock(Supported().mutex);
  Supported().pairs.clear();
}
