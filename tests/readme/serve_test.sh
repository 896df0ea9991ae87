#!/usr/bin/env bash
# serve_test.sh <emulator> <service> <confctl>: what is added to the README's service is there after it
# was killed and started again; a host without a name is refused, with the reason.
set -euo pipefail
IFS=';' read -ra emulator <<<"$1"
service=$2 confctl=$3
place=$(mktemp -d)
mkdir "$place/bus"

start() {
  "${emulator[@]}" "$service" --bus "$place/bus" --store "$place/hosts.db" &
  pid=$!
  for ((tries = 0; tries < 500; ++tries)); do
    client count hosts >/dev/null 2>&1 && return
    kill -0 "$pid"
    sleep 0.02
  done
  return 1
}
client() { "${emulator[@]}" "$confctl" --bus "$place/bus" "$@"; }
clean_up() {
  kill -KILL "$pid" 2>/dev/null || true
  rm -rf "$place"
}
trap clean_up EXIT

start
client add hosts name=printer address=192.0.2.7
kill -KILL "$pid"
wait "$pid" || true
start
client list hosts | grep -F "1 name=printer address=192.0.2.7"
status=0
refusal=$(client add hosts address=192.0.2.8 2>&1) || status=$?
[[ $status -eq 3 && $refusal == *"a host needs a name"* ]]
kill -TERM "$pid"
wait "$pid"
