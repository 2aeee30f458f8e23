#!/usr/bin/env bash
# Compiles library, simulator, example services and headers with several compilers and standards. Nothing is linked: Debian builds its C++
# libraries against libstdc++, so a program with libc++ cannot use them. usage: cmake/compilers.sh
set -euo pipefail
cd "$(dirname "$0")/.."

warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
includes=(-Iinclude -Isrc -Isimulator/include -Iplatform/host/include -isystem /usr/include/jsoncpp -isystem /usr/include/android)
mapfile -t units < <(git ls-files 'src/*.cpp' 'platform/*.cpp' 'examples/*_service.cpp' 'simulator/*.cpp')
mapfile -t headers < <(git ls-files 'include/*.h' 'simulator/include/*.h' ':!include/orvex/detail/') # these come with the others

# compile_all COMPILER OPTION...
compile_all() {
  local compile=("$@" -x c++ -fsyntax-only -DORVD_SIM_VERSION=0 "${warnings[@]}" "${includes[@]}")
  printf '%s\0' "${units[@]}" | xargs -0 -P "$(nproc)" -I{} "${compile[@]}" {}
  printf '%s\0' "${headers[@]}" | xargs -0 -P "$(nproc)" -I{} "${compile[@]}" -include {} /dev/null
  "${compile[@]}" -DORVEX_SEPARATE_COMPILATION -include include/orvex/implementation.h /dev/null
}

for compiler in g++ clang++-14 "clang++-14 -stdlib=libc++"; do
  for standard in 17 20; do
    echo "== $compiler, C++$standard" >&2
    read -ra words <<<"$compiler"
    compile_all "${words[@]}" -std=c++$standard
  done
done
echo "== g++, with a jsoncpp that is built without exceptions" >&2
compile_all g++ -std=c++17 -DJSON_USE_EXCEPTION=0
