#include "link/detached_thread.h"

#include <pthread.h>

int StartDetachedThread(void* (*run)(void*), void* argument) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread{};
  const int error = pthread_create(&thread, &attributes, run, argument);
  pthread_attr_destroy(&attributes);
  return error;
}
