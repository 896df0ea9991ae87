# The hosts service, and a client's session with it.

start_hosts() { serve hosts --store hosts.db --hosts-file hosts.txt; }

changes() {
  say 'A service that keeps host names for a resolver. It starts with nothing, and there is one of it.'
  start_hosts
  run 0 'confctl services'
  shows 'running'
  run 1 'hosts --bus bus --store second.db'
  shows 'taken by another process'

  say 'A client adds hosts. An answer comes when the change is on disk.'
  run 0 'confctl add hosts name=printer addresses=192.0.2.7,2001:db8::7'
  shows 'added 1'
  run 0 'confctl add hosts name=nas addresses=192.0.2.8'
  shows 'added 2'

  say 'What would be wrong is refused, with the reason and status 3.'
  run 3 "confctl add hosts name='my printer' addresses=192.0.2.9"
  shows 'is no host name'
  run 3 'confctl add hosts name=NAS addresses=192.0.2.9'
  shows 'is taken by object 2'
  run 3 'confctl set hosts 2 addresses=224.0.0.1'
  shows '224.0.0.1 is a multicast address'

  say 'A set changes the fields that it names.'
  run 0 "confctl set hosts 1 comment='second floor'"
  run 0 'confctl list hosts'
  shows "1 name=printer addresses=192.0.2.7,2001:db8::7 comment='second floor'"
  shows '2 name=nas addresses=192.0.2.8 '
  run 0 'cat hosts.txt'
  shows '192.0.2.8'$'\t''nas'
}

watching() {
  say 'Somebody watches.'
  typed 'confctl watch hosts --count 1 &'
  start watch.said tools/confctl/confctl --timeout 60000 watch hosts --count 1
  local watch=$! said
  exec {said}<watch.said
  for _ in {1..3}; do hear "$said"; done
  [[ $output == 'ready 2' ]] || fail 'the watch did not begin'

  say 'A second client makes a change; the watch tells of it.'
  run 0 'confctl set hosts 2 disabled=true'
  hear "$said"
  [[ $output == 'changed 2 name=nas'*'disabled=true'* ]] || fail 'the watch told something else'
  ended "$watch"
  [[ $status -eq 0 ]] || fail "the watch ended with status $status"
  run 0 'cat hosts.txt'
  hides 'nas'
}

undoing() {
  say 'Every change can be undone; the newest is the first.'
  run 0 'confctl undo hosts'
  shows "4 'nas changed' undo: set 100 2 disabled=false"
  run 0 'confctl undo hosts last'
  run 0 'confctl get hosts 2'
  shows 'disabled=false'
}

add_many() {
  for n in {1..200}; do
    confctl add hosts name=pc-$n addresses=10.0.0.$n || break
  done
}

killing() {
  say 'A client adds one host after the other, and the service is killed meanwhile.'
  typed 'for n in {1..200}; do confctl add hosts name=pc-$n addresses=10.0.0.$n || break; done &'
  mkfifo adder.said
  add_many >adder.said 2>/dev/null &
  local adder=$! said
  background[$adder]=adder
  exec {said}<adder.said
  for _ in {1..5}; do hear "$said"; done
  last=${output#added }
  crash hosts
  while read -r answer <&"$said"; do printf '%s\n' "$answer" && last=${answer#added }; done
  ended "$adder"
  ((last >= 7)) || fail "the client was told of $((last - 2)) hosts only"
  run 4 'confctl list hosts'
}

restart() {
  say 'Started again, it has everything that was acknowledged, the undone change too.'
  start_hosts
  run 0 'confctl list hosts'
  shows "1 name=printer addresses=192.0.2.7,2001:db8::7 comment='second floor'"
  shows '2 name=nas addresses=192.0.2.8 comment= disabled=false'
  for ((id = 3; id <= last; ++id)); do shows "$id name=pc-$((id - 2)) addresses=10.0.0.$((id - 2)) "; done
  run 0 'cat hosts.txt'
  shows '192.0.2.8'$'\t''nas'
  for ((id = 3; id <= last; ++id)); do shows "10.0.0.$((id - 2))"$'\t'"pc-$((id - 2))"; done
  stop hosts
}

show_hosts() {
  changes
  watching
  undoing
  killing
  restart
}
