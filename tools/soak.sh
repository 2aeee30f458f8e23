#!/usr/bin/env bash
# The stress test: orvd-sim drives the checking service, and ends the connection in every way meanwhile.
# usage: soak.sh BUILD [MINUTES], or soak.sh BUILD --self-check, which plants faults. In a private /dev.
set -euo pipefail

build=$1
service=
trap '[ -z "$service" ] || kill -KILL "$service"' EXIT
load=("$build/simulator/orvd-sim" load --check --notify --sessions 8 --outstanding 48 --strict --growth 10)

# run "SERVICE OPTIONS" LOAD-OPTION...
run() {
  local options result=0
  read -ra options <<<"$1"
  shift
  "$build/tools/checking_service" "${options[@]}" 2>/dev/null &
  service=$!
  "${load[@]}" "$@" || result=$?
  kill -KILL "$service"
  wait "$service" 2>/dev/null || true
  service=
  return "$result"
}

# must_find FAULT EVERY TEXT LOAD-OPTION...: the run must fail, and say TEXT
must_find() {
  local fault=$1 every=$2 text=$3 begin=$SECONDS output result=0
  shift 3
  output=$(run "--plant $fault $every" "$@" 2>/dev/null) || result=$?
  if [ "$result" -ne 1 ] || ! grep -q "^FAILED: .*$text" <<<"$output"; then
    printf 'the fault "%s" was not found:\n%s\n' "$fault" "$output"
    return 1
  fi
  printf 'found within %d s: %s\n' "$((SECONDS - begin))" "$(grep -m 1 "^FAILED: .*$text" <<<"$output")"
}

self_check() {
  must_find lost 5000 "missing answers" --seconds 15 --churn 3 --answer-limit 5
  must_find double 20000 "double answers" --seconds 15 --churn 3
  must_find leak 100 "memory of the service grew" --seconds 30 --churn 3
  run "" --seconds 60 --churn 3
}

if [ "${2:-}" = --self-check ]; then
  self_check
else
  run "" --churn 3 --seconds "$((${2:-20} * 60))"
fi
