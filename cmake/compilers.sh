#!/usr/bin/env bash
# Compiles library and headers with several compilers and standards. Nothing is linked: Debian builds its C++ libraries
# against libstdc++, so a program with libc++ cannot use them. usage: cmake/compilers.sh
set -euo pipefail
cd "$(dirname "$0")/.."

warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
includes=(-Iinclude -Isrc -Iplatform/host/include -isystem /usr/include/jsoncpp -isystem /usr/include/android)
mapfile -t units < <(git ls-files 'src/*.cpp' 'platform/*.cpp')
mapfile -t headers < <(git ls-files 'include/*.h')

# compile OPTION... FILE, for each of the files that are read from standard input.
compile_each() {
  xargs -0 -P "$(nproc)" -I{} "$@"
}

for compiler in g++ clang++-14 "clang++-14 -stdlib=libc++"; do
  for standard in 17 20; do
    echo "== $compiler, C++$standard" >&2
    read -ra compile <<<"$compiler -std=c++$standard -x c++ -fsyntax-only ${warnings[*]} ${includes[*]}"
    printf '%s\0' "${units[@]}" | compile_each "${compile[@]}" {}
    printf '%s\0' "${headers[@]}" | compile_each "${compile[@]}" -include {} /dev/null
  done
done
echo "== g++, with a jsoncpp that is built without exceptions" >&2
printf '%s\0' "${units[@]}" | compile_each g++ -std=c++17 -fsyntax-only -DJSON_USE_EXCEPTION=0 "${warnings[@]}" \
  "${includes[@]}" {}
