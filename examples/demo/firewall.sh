# The firewall service, and a client's session with it.

show_firewall() {
  local options=(--store firewall.db --ruleset-file firewall.nft --netns yes)
  say 'A packet filter is an ordered list in which the first match wins. Some rules come from the program.'
  serve firewall "${options[@]}"
  run 0 'confctl add firewall action=accept protocol=tcp ports=443 source=192.0.2.0/24 comment=office'
  shows 'added 5'
  run 0 'confctl add firewall action=drop source=198.51.100.0/24 --first'
  shows 'added 6'
  run 0 'confctl list firewall'
  [[ $output == '6 '*$'\n''1 '*$'\n''5 '* ]] || fail 'the order is another one'

  say 'A rule that could never match is refused, and so is a move after which one never would.'
  run 3 'confctl add firewall action=drop protocol=tcp ports=22'
  shows 'it would never match: rule 4 (accept tcp 22) stands before it'
  run 0 'confctl add firewall action=drop source=192.0.2.0/24'
  shows 'added 7'
  run 3 'confctl move firewall 7 --before 5'
  shows 'rule 5 (accept tcp 443 from 192.0.2.0/24) would never match'
  run 0 'confctl set firewall 5 disabled=true'
  run 0 'confctl move firewall 7 --before 5'
  run 3 'confctl remove firewall 4'
  shows 'comes from the program'

  say 'It is killed. Back again, all stand where they stood, and the file for nftables says the same.'
  local before
  before=$(confctl list firewall; cat firewall.nft)
  run 0 'grep -A 1 "rule [67])" firewall.nft'
  crash firewall
  serve firewall "${options[@]}"
  [[ $(confctl list firewall; cat firewall.nft) == "$before" ]] || fail 'that is not what was there'
  stop firewall
}
