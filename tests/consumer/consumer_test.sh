#!/usr/bin/env bash
# Usage: consumer_test.sh PREFIX WORK_FOLDER COMPILER [FLAGS]. Builds and runs the consumer against what is installed at
# PREFIX by both ways: CMake's package, and pkg-config.
set -euo pipefail
sources=$(cd "$(dirname "$0")" && pwd)
prefix=$1 work=$2 compiler=$3 flags=${4:-}
rm -rf "$work"
mkdir -p "$work"

configure() {
  cmake -S "$sources" -B "$work/by-cmake" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_PREFIX_PATH="$prefix" "$@" >"$work/configure.log" 2>&1
}

configure || { cat "$work/configure.log"; exit 1; }
cmake --build "$work/by-cmake" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/by-cmake/consumer"

if configure -DORVEX_VERSION=1.0; then
  echo "A project written for another major version is given this one"
  exit 1
fi
grep -q 'considered but not accepted' "$work/configure.log" || { cat "$work/configure.log"; exit 1; }

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name orvex2_0.pc)")
export PKG_CONFIG_PATH
pkg-config --validate orvex2_0
read -ra options <<<"$flags $(pkg-config --cflags --libs 'orvex2_0 >= 2.0')"
"$compiler" -std=c++17 "$sources/consumer.cpp" "${options[@]}" -o "$work/by-pkg-config"
LD_LIBRARY_PATH=$(pkg-config --variable libdir orvex2_0) "$work/by-pkg-config"

"$prefix/bin/orvd-sim" --help >/dev/null
