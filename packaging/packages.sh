#!/usr/bin/env bash
# Makes the Debian packages of the build in BUILD_FOLDER and checks them with lintian. Then unpacks them, builds the
# example service against them, and runs the demo with it. usage: packaging/packages.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
tests=$(dirname "$0")/../tests

rm -rf "$build"/*.deb "$build/root"
(cd "$build" && cpack -G DEB >cpack.log) || { cat "$build/cpack.log"; exit 1; }
lintian --allow-root --fail-on error "$build"/*.deb
for package in "$build"/*.deb; do
  dpkg-deb -x "$package" "$build/root"
done
bash "$tests/consumer/consumer_test.sh" "$build/root/usr" "$build/consumer" g++ >"$build/consumer.log" 2>&1 ||
  { cat "$build/consumer.log"; exit 1; }
ls "$build"/*.deb
