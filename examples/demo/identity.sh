# The identity service, and a client's session with it.

show_identity() {
  local options=(--store identity.db --identity-file identity.env)
  say 'The identity of a device is one configuration. A fleet controller (1) may say more than the user,' \
    'an address service (2) what nobody else says.'
  serve identity "${options[@]}"
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
  crash identity
  serve identity "${options[@]}"
  run 0 'cat identity.env'
  shows 'HOST_NAME="gate"'
  stop identity
}
