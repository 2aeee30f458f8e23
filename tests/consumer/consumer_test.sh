#!/usr/bin/env bash
# Usage: consumer_test.sh BUILD_DIR COMPILER FLAGS. Installs the build into a folder of its own, and builds and runs the
# consumer against that by both ways: CMake's package, and pkg-config.
set -euo pipefail
sources=$(cd "$(dirname "$0")" && pwd)
work=$1/tests/consumer
stage=$work/stage
read -ra flags <<<"${3:-}"
rm -rf "$work"
mkdir -p "$work"

cmake --install "$1" --prefix "$stage" >"$work/install.log"

cmake -S "$sources" -B "$work/by-cmake" -G Ninja -DCMAKE_CXX_COMPILER="$2" -DCMAKE_CXX_FLAGS="${3:-}" \
  -DCMAKE_PREFIX_PATH="$stage" >"$work/configure.log"
cmake --build "$work/by-cmake" >"$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/by-cmake/consumer"

PKG_CONFIG_PATH=$(dirname "$(find "$stage" -name orvex2_0.pc)")
export PKG_CONFIG_PATH
pkg-config --validate orvex2_0
read -ra found <<<"$(pkg-config --cflags --libs 'orvex2_0 >= 2.0')"
"$2" -std=c++17 "${flags[@]}" "$sources/consumer.cpp" "${found[@]}" -o "$work/by-pkg-config"
LD_LIBRARY_PATH=$(pkg-config --variable libdir orvex2_0) "$work/by-pkg-config"
