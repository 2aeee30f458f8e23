#include "support/faults.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>

#include "orvd_types.h"

namespace {

struct Fault {
  std::atomic<int> error{0};
  std::atomic<int> times{0};
};
std::array<Fault, 5> faults;

std::mutex hook_mutex;
std::function<void(int)> send_hook;

Fault& FaultOf(Call call) {
  return faults.at(static_cast<size_t>(call));
}

// The error to fail with; 0 to go on.
int Take(Call call) {
  Fault& fault = FaultOf(call);
  int times = fault.times;
  while (times > 0 && !fault.times.compare_exchange_weak(times, times - 1)) {
  }
  return times > 0 ? fault.error.load() : 0;
}

bool Fails(Call call) {
  const int error = Take(call);
  errno = error != 0 ? error : errno;
  return error != 0;
}

template <typename Function>
Function* Next(Function* /*own*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void CallSendHook(int fd) {
  std::function<void(int)> hook;
  {
    const std::lock_guard<std::mutex> lock(hook_mutex);
    hook = send_hook;
  }
  if (hook) {
    hook(fd);
  }
}

}  // namespace

void FailNext(Call call, int error, int times) {
  FaultOf(call).error = error;
  FaultOf(call).times = times;
}

int StillToFail(Call call) {
  return FaultOf(call).times;
}

void SetSendHook(std::function<void(int)> hook) {
  const std::lock_guard<std::mutex> lock(hook_mutex);
  send_hook = std::move(hook);
}

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  static auto* const next = Next(&socket, "socket");
  return (type & ~SOCK_CLOEXEC) == SOCK_SEQPACKET && Fails(Call::kSocket) ? -1 : next(domain, type, protocol);
}

ssize_t sendto(int fd, const void* data, size_t size, int flags, const sockaddr* address,
               socklen_t length) {
  static auto* const next = Next(&sendto, "sendto");
  CallSendHook(fd);
  return Fails(Call::kSendto) ? -1 : next(fd, data, size, flags, address, length);
}

ssize_t recvfrom(int fd, void* data, size_t size, int flags, sockaddr* address, socklen_t* length) {
  static auto* const next = Next(&recvfrom, "recvfrom");
  return Fails(Call::kRecvfrom) ? -1 : next(fd, data, size, flags, address, length);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) noexcept {
  static auto* const next = Next(&pthread_create, "pthread_create");
  const int error = Take(Call::kThread);
  return error != 0 ? error : next(thread, attributes, run, argument);
}

// A sanitizer allocates by its own calloc before anything can be looked up.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void* __libc_calloc(size_t count, size_t size);
void* calloc(size_t count, size_t size) noexcept {
  const bool fails = size == sizeof(_orvex_call_info_t) && Fails(Call::kCallRecord);
  return fails ? nullptr : __libc_calloc(count, size);
}
#endif

}  // extern "C"
