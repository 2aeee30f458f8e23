#!/usr/bin/env bash
# Builds an example service and its unit test against the installed files, with the CMake package and with pkg-config.
# Runs the tests, and the demo with the installed orvd-sim. usage: consumer_test.sh PREFIX WORK_FOLDER COMPILER [FLAGS]
set -euo pipefail
project=$(cd "$(dirname "$0")/../.." && pwd)
prefix=$1 work=$2 compiler=$3 flags="-Wall -Wextra -Wconversion -Wshadow -Werror ${4:-}"
rm -rf "$work"
mkdir -p "$work"

configure() {
  cmake -S "$project/tests/consumer" -B "$work" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_PREFIX_PATH="$prefix" "$@"
}
configure
cmake --build "$work"
if configure -DORVEX_VERSION=1.0 >"$work/other_version.log" 2>&1; then
  echo "find_package accepts this version for another major version"
  exit 1
fi
grep 'considered but not accepted' "$work/other_version.log"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name orvex2_0.pc)")
export PKG_CONFIG_PATH
pkg-config --validate orvex2_0 orvex_simulator
read -ra options <<<"$flags $(pkg-config --cflags --libs 'orvex2_0 >= 2.0') -Wl,-rpath,$(pkg-config --variable libdir orvex2_0)"
"$compiler" -std=c++17 "$project/examples/raw_service.cpp" "${options[@]}" -o "$work/consumer_by_pkg_config"
read -ra test_options <<<"$(pkg-config --cflags --libs orvex_simulator gtest_main)"
"$compiler" -std=c++17 "$project/examples/sensor_hub_test.cpp" "${options[@]}" "${test_options[@]}" \
  -o "$work/consumer_test_by_pkg_config"
for test in consumer_test consumer_test_by_pkg_config; do
  bwrap --die-with-parent --bind / / --dev /dev --dir /dev/socket -- "$work/$test"
done

ORVD_SIM=$prefix/bin/orvd-sim "$project/examples/demo.sh" "$prefix" "$work/consumer"
