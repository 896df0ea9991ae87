#!/usr/bin/env bash
# Types the commands of a transcript, the lines that begin with "$ ", and compares what they print with the
# lines below them. An exit status that is not 0 is a line of its own: "[3]".
#
# transcript_test.sh EMULATOR CONFCTL SERVICE TRANSCRIPT
set -u
IFS=';' read -ra emulator <<<"$1"
client=$2 service=$3 transcript=$4

folder=$(mktemp -d)
export CONFKIT_BUS=$folder/bus
mkdir "$CONFKIT_BUS"
trap 'stop_service 2>/dev/null; rm -rf "$folder"' EXIT

confctl() { "${emulator[@]}" "$client" "$@"; }

as_stranger() {
  local stranger=()
  ((EUID != 0)) || stranger=(setpriv --bounding-set=-dac_override --)
  "${stranger[@]}" "${emulator[@]}" "$client" "$@"
}

# Waits until the handler answers; the service's own when none is given.
start_service() {
  "${emulator[@]}" "$service" --bus "$CONFKIT_BUS" --store "$folder/store.db" &
  service_pid=$!
  for _ in $(seq 100); do
    confctl count "${1:-shelf}" >/dev/null 2>&1 && return
    sleep 0.05
  done
  echo "the service does not answer"
}

stop_service() {
  kill -9 "$service_pid"
  wait "$service_pid" 2>/dev/null
  return 0
}

# A watcher in the background. await waits until it has printed a line that begins with a text, or
# so many of them.
start_watch() {
  : >"$folder/watched"  # there before anybody looks, and without what an earlier one said
  "${emulator[@]}" "$client" watch "$@" >"$folder/watched" 2>&1 &
  watch_pid=$!
}

await() {
  local times=${2:-1}
  for _ in $(seq 100); do
    (($(grep -c "^$1" "$folder/watched") >= times)) && return
    sleep 0.05
  done
  echo "the watcher has not said: $1"
}

watched() { cat "$folder/watched"; }

run() {
  local command status
  while IFS= read -r line <&3; do
    [[ $line == '$ '* ]] || continue
    command=${line#'$ '}
    printf '%s\n' "$line"
    eval "$command" </dev/null
    status=$?
    ((status == 0)) || echo "[$status]"
  done 3<"$transcript"
}

run >"$folder/printed" 2>&1
sed "s|$folder|FOLDER|g" "$folder/printed" >"$folder/result"
diff -u <(grep -v '^#' "$transcript" | sed '/^$/d') "$folder/result"
