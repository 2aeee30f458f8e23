#!/usr/bin/env bash
# Runs the benchmark and prints its report. Every ratio compares two services in the same run: the library with the
# baseline, the C++ layer with the raw interface of the library, or a service with and without orvd-sim monitor.
# usage: bench/run.sh BUILD_FOLDER [--quick] [--json FILE] [--plot FILE]
set -euo pipefail
report=$(dirname "$0")/report.py
build=$1/bench
shift

rounds=5 percent=100 min_time=0.3 options=()
while [ $# -gt 0 ]; do
  case $1 in
    --quick) percent=10 min_time=0.02 ;;
    --json | --plot) options+=("$1" "${2:?$1 needs a file}") && shift ;;
    *) echo "bench: unknown option $1" >&2 && exit 2 ;;
  esac
  shift
done
compile_rounds=$rounds monitor_rounds=50
[ "$percent" = 100 ] || compile_rounds=1 monitor_rounds=3

# The services connect to the real socket path, in a private /dev.
bwrap --die-with-parent --bind / / --dev /dev --dir /dev/socket -- "$build/orvd_bench" "$rounds" "$percent" \
  >"$build/socket.json"
echo "== in one process" >&2
# On the last processor that this script may use, like orvd_bench.
taskset -c "$(taskset -cp $$ | grep -oE '[0-9]+$')" "$build/bench_in_process" --benchmark_min_time="$min_time" \
  --benchmark_format=json >"$build/in_process.json" 2>"$build/in_process.log"
# The interpreter of the system: the Debian packages install their modules for it.
/usr/bin/python3 "$report" "$build/socket.json" "$build/in_process.json" "${options[@]}"
echo "== through orvd-sim monitor" >&2
"$(dirname "$0")/monitor_rate.sh" "$(dirname "$build")" "$monitor_rounds"
for compiler in g++ clang++-14; do
  ! command -v "$compiler" >/dev/null || /usr/bin/python3 "$(dirname "$0")/compile_time.py" "$compiler" "$compile_rounds"
done
