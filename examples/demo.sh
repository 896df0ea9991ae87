#!/usr/bin/env bash
# demo.sh <build directory> [emulator]: services at work, and a client's session with each of them.
#
# Prints what it types and what comes back, and ends with status 1 when that is not what it should be.
# Everything is in a temporary directory; nothing is left behind.
set -euo pipefail
build=$(realpath "$1")
here=$(realpath "$(dirname "$0")")
IFS=';' read -ra emulator <<<"${2:-}"
place=$(mktemp -d -t confkit-demo.XXXXXX)
declare -A background=()  # by process id
declare -A service=()  # the process ids of services, by name
cd "$place"
export CONFKIT_BUS=bus

# --- what the session is made of

clean_up() {
  for pid in "${!background[@]}"; do
    kill -KILL "$pid" && wait "$pid" || true
  done 2>/dev/null
  rm -rf "$place"
}
trap clean_up EXIT
trap "exit 1" HUP INT PIPE TERM

fail() {
  printf '\ndemo: %s\n' "$1" >&2
  exit 1
}

say() {
  echo
  printf '# %s\n' "$@"
}
typed() { printf '$ %s\n' "$1"; }

# run <status> <command>: types the command; its output goes to the screen and to $output.
run() {
  local status=0
  typed "$2"
  output=$(eval "$2" 2>&1) || status=$?
  [[ -z $output ]] || printf '%s\n' "$output"
  [[ $status -eq $1 ]] || fail "that ended with status $status, not $1"
}
shows() { [[ $output == *"$1"* ]] || fail "that does not say: $1"; }
hides() { [[ $output != *"$1"* ]] || fail "that should not say: $1"; }

# hear <descriptor>: waits for the next line of what runs in the background; it goes to the screen and to
# $output.
hear() {
  read -r -t 60 output <&"$1" || fail "nothing more was said"
  printf '%s\n' "$output"
}

hosts() { "${emulator[@]}" "$build/examples/hosts" "$@"; }
# On a machine with much else to do an answer may take longer than the usual 5 seconds.
confctl() { "${emulator[@]}" "$build/tools/confctl/confctl" --timeout 60000 "$@"; }

# start <what it says goes here> <program> <argument>...: runs a program of the build beside the session.
start() {
  mkfifo "$1"
  "${emulator[@]}" "$build/$2" "${@:3}" >"$1" 2>&1 &
  background[$!]=$1
}

# ended <pid>: waits for its end; its status is in $status.
ended() {
  status=0
  wait "$1" 2>/dev/null || status=$?
  unset "background[$1]"
}

# serve <name> <option>...: types the command of a service, starts it, and waits until it says that it serves.
serve() {
  local said
  typed "$1 --bus bus ${*:2} &"
  rm -f "$1.said"
  start "$1.said" "examples/$1" --bus bus "${@:2}"
  service[$1]=$!
  exec {said}<"$1.said"
  until hear "$said" && [[ $output == *serving* ]]; do continue; done
}

# stop <name>, crash <name>: ends a service, in good order or not.
stop() {
  run 0 "kill -TERM ${service[$1]}"
  ended "${service[$1]}"
  [[ $status -eq 0 ]] || fail "the service ended with status $status"
}
crash() {
  run 0 "kill -KILL ${service[$1]}"
  ended "${service[$1]}"
}

# --- the session

source "$here/demo/hosts.sh"
source "$here/demo/vlans.sh"
source "$here/demo/neighbours.sh"
source "$here/demo/scripts.sh"
source "$here/demo/firewall.sh"
source "$here/demo/identity.sh"

go_on() {
  say 'That was all of it. To go on by hand:'
  cat <<END
    export PATH=$build/examples:$build/tools/confctl:\$PATH
    export CONFKIT_BUS=\$(mktemp -d)
    cd \$CONFKIT_BUS
    hosts --bus . --store hosts.db --hosts-file hosts.txt &
    until confctl count hosts >/dev/null 2>&1; do sleep 0.1; done
    confctl fields hosts
    confctl add hosts name=printer addresses=192.0.2.7
    vlans --bus . --store vlans.db --interfaces-file vlans.txt &
    until confctl count vlans >/dev/null 2>&1; do sleep 0.1; done
    vlan-mirror --bus . --store mirror.db &
    confctl add vlans vid=7
    neighbours --bus . --store neighbours.db &
    until confctl list neighbours >/dev/null 2>&1; do sleep 0.1; done
    confctl list neighbours
    scripts --bus . --store scripts.db &
    until confctl count scripts.101 >/dev/null 2>&1; do sleep 0.1; done
    confctl --system add scripts.101 name=greet source='echo hello \$1'
    confctl run scripts.101 greet world
    confctl --help
    kill %1 %2 %3 %4 %5; cd /; rm -r \$CONFKIT_BUS    # when it is enough
END
}

show_hosts
show_vlans
show_neighbours
show_scripts
show_firewall
show_identity
go_on
