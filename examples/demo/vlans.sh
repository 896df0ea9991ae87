# The VLANs service and its mirror, and a client's session with them.

start_vlans() {
  serve vlans --store vlans.db --interfaces-file vlans.txt --device-states net --netns yes
}
start_mirror() { serve vlan-mirror --store mirror.db; }

# in_step: waits until the mirror has what the service has. It lists by id, the service in the order.
in_step() {
  local theirs
  for _ in {1..600}; do
    theirs=$(confctl list vlans | sort -n)
    [[ -n $theirs && $theirs == "$(confctl list vlan-mirror | sort -n)" ]] && return
    sleep 0.1
  done
  fail 'the mirror is not in step'
}

set_link() {
  run 0 "echo $2 >net/$1/operstate"
}

vlan_changes() {
  say 'A second service keeps the VLANs of a network box in the order that the user wants.' \
    'Two are built in. Whether a device has a link it reads from files, here in the folder net.'
  mkdir -p net/eth0 net/eth1
  echo up >net/eth0/operstate
  echo up >net/eth1/operstate
  start_vlans
  run 0 'confctl list vlans'
  shows '1 name=lan vid=1 parent=eth0'

  say 'One without a name is given the next free one.'
  run 0 'confctl add vlans vid=7 comment=office'
  shows 'added 3'
  run 0 'confctl add vlans vid=8 name=cameras parent=eth1'
  shows 'added 4'
  run 3 'confctl add vlans vid=7'
  shows 'vid 7 on eth0 is taken by object 3'
  run 3 'confctl add vlans vid=4095'
  shows 'needs a vid from 1 to 4094, this one has 4095'
  run 3 'confctl set vlans 4 parent=eth9'
  shows 'there is no device "eth9"'

  say "The order is the user's: in the list, and in the file for ifupdown that the service writes."
  run 0 'confctl move vlans 4 --first'
  run 0 'confctl list vlans'
  [[ $output == '4 name=cameras'*$'\n''1 name=lan'*$'\n''2 name=wan'*$'\n''3 name=vlan1'* ]] ||
    fail 'the order is another one'
  run 0 'grep -A 2 "^#" vlans.txt'
  shows '# office: vlan1 (VLAN 7 on eth0)'
}

vlan_watching() {
  say 'Somebody watches the VLANs of one device.'
  typed 'confctl watch vlans --where parent=eth0 --count 3 &'
  start vlan-watch.said tools/confctl/confctl --timeout 60000 watch vlans --where parent=eth0 --count 3
  local watch=$! said
  exec {said}<vlan-watch.said
  until hear "$said" && [[ $output == ready* ]]; do continue; done

  say 'A VLAN comes to the device; then the device loses its link. No command has changed that.'
  run 0 'confctl set vlans 4 parent=eth0 comment=yard'
  hear "$said"
  [[ $output == 'entered 4 name=cameras'* ]] || fail 'the watch told something else'
  run 0 'confctl set vlans 4 parent=eth1'
  hear "$said"
  [[ $output == 'left 4 name=cameras'* ]] || fail 'the watch told something else'
  set_link eth0 down
  hear "$said"
  [[ $output == 'changed '*up=false* ]] || fail 'the watch told something else'
  ended "$watch"
  [[ $status -eq 0 ]] || fail "the watch ended with status $status"
}

mirroring() {
  say 'A mirror in another process follows the VLANs and keeps a copy of its own.'
  start_mirror
  in_step
  run 0 'confctl list vlan-mirror'
  shows '4 name=cameras vid=8 parent=eth1 comment=yard'

  say 'The mirror is killed; meanwhile one VLAN changes and another one goes.'
  crash vlan-mirror
  run 0 'confctl set vlans 3 comment=library'
  run 0 'confctl remove vlans 4'

  say 'Started again, it has caught up, and what has vanished is gone.'
  start_mirror
  in_step
  run 0 'confctl list vlan-mirror'
  shows 'comment=library'
  hides 'cameras'
}

vlan_crash() {
  say 'The VLANs service is killed. The mirror goes on answering, and the service comes back with all.'
  local before
  before=$(confctl list vlans)
  crash vlans
  run 4 'confctl list vlans'
  run 0 'confctl list vlan-mirror'
  shows '3 name=vlan1 vid=7 parent=eth0 comment=library'
  start_vlans
  run 0 'confctl list vlans'
  [[ $output == "$before" ]] || fail 'that is not what was there before'

  say 'The mirror has found it again.'
  run 0 'confctl set vlans 3 comment=archive'
  in_step
  run 0 'confctl list vlan-mirror'
  shows 'comment=archive'
  stop vlan-mirror
  stop vlans
}

show_vlans() {
  vlan_changes
  vlan_watching
  mirroring
  vlan_crash
}
