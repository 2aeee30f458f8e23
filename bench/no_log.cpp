// Log calls end in this empty function: the benchmark does not measure the platform's log.

extern "C" int __android_log_print(int /*priority*/, const char* /*tag*/, const char* /*format*/,
                                   ...) {
  return 1;
}
