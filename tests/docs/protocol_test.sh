#!/usr/bin/env bash
# Runs the messages of docs/PROTOCOL.md as a scenario. Compares the output of the service with the scenario's comments.
# usage: [EMULATOR=COMMAND] protocol_test.sh ORVD_SIM SERVICE SCENARIO, in a private /dev
set -euo pipefail
read -ra emulator <<<"${EMULATOR:-}"
path=/dev/socket/orvex_one/orvd_one
(until [ -S $path ]; do sleep 0.01; done && exec timeout 60 "${emulator[@]}" "$2" >/dev/socket/printed) &
"${emulator[@]}" "$1" --path $path "$3" || { kill $!; exit 1; }
wait $!
diff <(sed -n 's/^# //p' "$3" | sort) <(sort /dev/socket/printed)
