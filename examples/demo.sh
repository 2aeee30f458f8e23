#!/usr/bin/env bash
# Runs a service (by default the sensor hub) against a Manager peer: two processes on the real socket path, in a private
# /dev. The Manager dies at the end of the first scenario. A new one plays the second.
# usage: [EMULATOR=COMMAND] [ORVD_SIM=PROGRAM] demo.sh BUILD_FOLDER [SERVICE SCENARIO SCENARIO_OF_THE_RETURN]
set -euo pipefail

build=$(cd "$1" && pwd)
read -ra emulator <<<"${EMULATOR:-}"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
manager_program=${ORVD_SIM:-$build/simulator/orvd-sim}
program=${2:-$build/examples/sensor_hub_service}
scenario=${3:-$here/demo.scenario}
scenario_of_the_return=${4:-$here/demo_return.scenario}
limit=50 # seconds; the demonstration takes a few
pace=80  # milliseconds before each step, so that the log lines appear beside the messages

if [ -z "${ORVEX_PRIVATE_DEV:-}" ]; then
  exec bwrap --die-with-parent --bind / / --dev /dev --dir /dev/socket --setenv ORVEX_PRIVATE_DEV 1 \
    -- bash "${BASH_SOURCE[0]}" "$@"
fi

color=never
dim='' plain=''
if [ -t 1 ]; then
  color=always dim=$'\e[2m' plain=$'\e[0m'
fi

# Shows the priority and the text of the host's log lines, "name E 01-01 00:00:00 pid tid text".
show_log() {
  sed -uE "s/^[^ ]+ ([A-Z]) [0-9-]+ [0-9:]+ +[0-9]+ +[0-9]+ (.*)$/\1 \2/; s/^(.*)$/${dim}                          log | \1${plain}/"
}

# Runs a program until the time limit or until this script ends, even if the program ignores signals.
limited() {
  exec setpriv --pdeathsig TERM timeout --kill-after 3 "$limit" "${emulator[@]}" "$@"
}

play() {
  limited "$manager_program" --color "$color" --pace "$pace" --summary "$summary" "$1" &
  manager=$!
}

summary=/dev/socket/summary # removed together with the private /dev
: >"$summary"
play "$scenario"
for _ in $(seq 100); do
  [ ! -S /dev/socket/orvd ] || break
  sleep 0.02
done

exec {log}> >(show_log)
reader=$!
limited "$program" >&"$log" 2>&1 &
service=$!
exec {log}>&-

result=0
killed=137 # 128 + SIGKILL
wait "$manager" 2>/dev/null || result=$?
if [ $result -eq $killed ]; then
  echo "--- The Manager has been killed and is away for a moment"
  sleep 0.2
  result=0
  play "$scenario_of_the_return"
  wait "$manager" || result=$?
else
  result=1
fi

if [ $result -ne 0 ]; then
  kill "$service" 2>/dev/null || true
fi
wait "$service" || { echo "the service ended with an error"; result=1; }
wait "$reader"
awk '{ sent += $1; answered += $4; rejected += $8; failures += $12 }
  END { printf "%d tasks sent, %d answered as expected, %d rejected as expected, %d failures\n",
        sent, answered, rejected, failures
        exit failures > 0 || sent == 0 || sent != answered + rejected }' "$summary" || result=1
exit $result
