# The identity service, and a client's session with it.

start_identity() {
  local command='--bus bus --store identity.db --identity-file identity.env'
  typed "identity $command &"
  rm -f identity.said
  start identity.said examples/identity $command
  identity=$!
  exec 13<identity.said
  hear 13
}

show_identity() {
  say 'The identity of a device is one configuration. A fleet controller (1) may say more than the user,' \
    'an address service (2) what nobody else says.'
  start_identity
  run 0 'confctl set identity location="hall 3" time-zone=UTC'
  run 0 'confctl set identity --managed 2 host-name=dhcp-7 time-zone=Etc/UTC'
  run 0 'cat identity.env'
  shows 'HOST_NAME="dhcp-7"'
  shows 'TIME_ZONE="UTC"'
  run 0 'confctl set identity --managed 1 host-name=gate-17'
  run 0 'confctl set identity host-name=gate'
  run 3 'confctl set identity host-name=-gate'
  shows 'is no host name'
  run 0 'confctl get identity'
  shows '"host-name":"gate-17"'

  say 'The fleet controller drops out: the name that the user gave counts, after a crash as well.'
  run 0 'confctl set identity --managed 1 --drop'
  crash_of "$identity"
  start_identity
  run 0 'cat identity.env'
  shows 'HOST_NAME="gate"'
  stop "$identity"
}
