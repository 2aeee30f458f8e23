#include "support/faults.h"

#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>
#include <mutex>
#include <utility>

#include "orvd_types.h"
#include "support/real_function.h"

namespace {

struct Fault {
  int error, times;
};

std::mutex mutex;
Fault faults[5];
void Ignore(int /*fd*/) {}
std::function<void(int)> send_hook = Ignore;

// Returns the error of the planned fault and sets errno. Returns 0 when the call must not fail.
int TakeFault(Call call) {
  const std::lock_guard<std::mutex> lock(mutex);
  Fault& fault = faults[static_cast<size_t>(call)];
  if (fault.times == 0) {
    return 0;
  }
  --fault.times;
  return errno = fault.error;
}

std::function<void(int)> TakeSendHook() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(send_hook, Ignore);
}

}  // namespace

void FailNext(Call call, int error, int times) {
  const std::lock_guard<std::mutex> lock(mutex);
  faults[static_cast<size_t>(call)] = {error, times};
}

void OnNextPacket(std::function<void(int)> hook) {
  const std::lock_guard<std::mutex> lock(mutex);
  send_hook = std::move(hook);
}

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  static auto* const next = RealFunction(&socket, "socket");
  return TakeFault(Call::kSocket) != 0 ? -1 : next(domain, type, protocol);
}

ssize_t sendto(int fd, const void* data, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  static auto* const next = RealFunction(&sendto, "sendto");
  TakeSendHook()(fd);
  return TakeFault(Call::kSendto) != 0 ? -1 : next(fd, data, size, flags, address, length);
}

ssize_t recvfrom(int fd, void* data, size_t size, int flags, sockaddr* address, socklen_t* length) {
  static auto* const next = RealFunction(&recvfrom, "recvfrom");
  return TakeFault(Call::kRecvfrom) != 0 ? -1 : next(fd, data, size, flags, address, length);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) noexcept {
  static auto* const next = RealFunction(&pthread_create, "pthread_create");
  const int error = TakeFault(Call::kThread);
  return error != 0 ? error : next(thread, attributes, run, argument);
}

// A sanitizer calls its own calloc before dlsym can be used.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void* __libc_calloc(size_t count, size_t size);
void* calloc(size_t count, size_t size) noexcept {
  const bool fails = size == sizeof(_orvex_call_info_t) && TakeFault(Call::kCallRecord) != 0;
  return fails ? nullptr : __libc_calloc(count, size);
}
#endif

}  // extern "C"
