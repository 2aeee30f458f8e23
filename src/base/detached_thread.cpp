#include "base/detached_thread.h"

#include <pthread.h>

namespace orvd_client {

namespace {

constexpr size_t kTaskStackSize = 1U << 20;
constexpr size_t kDefaultStackSize = 0;

int Start(size_t stack_size, void* (*run)(void*), void* argument) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (stack_size != kDefaultStackSize) {
    pthread_attr_setstacksize(&attributes, stack_size);
  }
  pthread_t thread{};
  const int error = pthread_create(&thread, &attributes, run, argument);
  pthread_attr_destroy(&attributes);
  return error;
}

}  // namespace

int StartDetachedThread(void* (*run)(void*), void* argument) {
  return Start(kDefaultStackSize, run, argument);
}

int StartDetachedTaskThread(void* (*run)(void*), void* argument) {
  return Start(kTaskStackSize, run, argument);
}

}  // namespace orvd_client
