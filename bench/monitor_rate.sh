#!/usr/bin/env bash
# Compares the tasks a second of a service with a direct connection and through orvd-sim monitor, in the same run.
# usage: bench/monitor_rate.sh BUILD_FOLDER [ROUNDS]
set -euo pipefail
build=${1:?usage: bench/monitor_rate.sh BUILD_FOLDER [ROUNDS]}
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
# The service connects to the real socket path, in a private /dev.
bwrap --die-with-parent --bind / / --dev /dev --dir /dev/socket -- \
  "$build/bench/monitor_rate" "$build/simulator/orvd-sim" "$build/bench/bench_library_service" "${2:-50}" "$folder"
