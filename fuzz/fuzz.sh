#!/usr/bin/env bash
# Runs a fuzz target with its own corpus, the seeds, and a dictionary of the words in sources and seeds.
# usage: fuzz/fuzz.sh BUILD_FOLDER TARGET SECONDS
#        fuzz/fuzz.sh --self-check BUILD_FOLDER, which must have been built with ORVEX_FUZZ_PLANT
set -euo pipefail
cd "$(dirname "$0")/.."

# The library never frees some memory of refused tasks, on purpose, so the memory limit is high. Leaks are checked once,
# at the end.
fuzz() {
  local build=$1 target=$2 seconds=$3
  local corpus=$build/fuzz/corpus/$target dictionary=$build/fuzz/dictionary
  mkdir -p "$corpus"
  grep -rhoaE '"\w+"|-?[0-9.e]*[0-9]' src fuzz/seeds | sort -u | sed 's/"/\\"/g; s/.*/"&"/' >"$dictionary"
  "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=16384 -max_len=4096 -timeout=20 -detect_leaks=0 \
    -dict="$dictionary" -artifact_prefix="$corpus-" -print_final_stats=1 -verbosity=0 "$corpus" fuzz/seeds
}

# The build has a planted bug. No seed may trigger it, and the fuzzer must find it within a minute.
self_check() {
  local build=$1 log=$1/self-check.log
  "$build/fuzz/fuzz_packets" -runs=0 -artifact_prefix="$build/" fuzz/seeds 2>/dev/null ||
    { echo "a seed already triggers the planted bug"; exit 1; }
  rm -rf "$build/fuzz/corpus"
  if fuzz "$build" packets 60 >"$log" 2>&1; then
    echo "the planted bug was not found"
    exit 1
  fi
  for expected in heap-buffer-overflow OnTask; do
    grep -q "$expected" "$log" || { tail -n 30 "$log"; exit 1; }
  done
  echo "the planted bug was found: $(grep -m1 'SUMMARY' "$log")"
}

if [ "$1" = --self-check ]; then
  self_check "$2"
else
  fuzz "$@"
fi
