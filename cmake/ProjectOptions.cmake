# Options of the project's own targets. The headers of other libraries are compiled without these warnings.
add_library(orvex_options INTERFACE)
target_compile_features(orvex_options INTERFACE cxx_std_17)
target_compile_options(orvex_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(orvex_options INTERFACE -Wthread-safety)
endif()

set(ORVEX_TEST_TIME_FACTOR 1 CACHE STRING "Multiplies the time that a test may take, as an emulator needs it")
math(EXPR ORVEX_TEST_TIMEOUT "60 * ${ORVEX_TEST_TIME_FACTOR}")

set(ORVEX_SANITIZE "" CACHE STRING "Sanitizers of the whole build, as -fsanitize takes them")
if(ORVEX_SANITIZE)
  add_compile_options(-fsanitize=${ORVEX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ORVEX_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # With sanitizers, g++ 12 gives false warnings in the standard library's <regex>.
    target_compile_options(orvex_options INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()

option(ORVEX_ABI "Debug information for abidw: the public types, not the standard library's templates" OFF)
if(ORVEX_ABI)
  add_compile_options(-femit-struct-debug-detailed=ord:any,gen:base)
endif()
