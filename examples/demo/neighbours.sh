# The neighbours service: stored entries, and behind them what the kernel knows, read while a client asks.

# connections <number>: the lines of a kernel's table with so many connections.
connections() {
  echo '  sl  local_address rem_address   st tx_queue:rx_queue tr:tm->when retrnsmt   uid  timeout inode'
  awk -v n="$1" 'BEGIN { while (k < n) printf "%d: 00000000:%04X 00000000:0000 01 0:0 0:0 0 1000 0 1\n", k, k++ % 65536 }'
}

show_neighbours() {
  say 'A service keeps static neighbours. Behind them its list goes on with the tables of the kernel,' \
    'here files in the folder proc-net, which are read a piece at a time while a client asks.'
  mkdir proc-net
  cat >proc-net/arp <<END
IP address       HW type     Flags       HW address            Mask     Device
192.0.2.1        0x1         0x2         02:fc:00:00:00:05     *        eth0
END
  connections 20000 >proc-net/tcp
  serve neighbours --store neighbours.db --proc-net proc-net
  run 0 'confctl add neighbours address=192.0.2.7 hardware=02:00:5e:10:00:01 device=eth0 comment=camera'
  run 3 'confctl add neighbours address=192.0.2.7 hardware=02:00:5e:10:00:02 device=eth0'
  shows '192.0.2.7 on eth0 is object 1'
  run 0 'confctl list neighbours | sed -n 1,3p'
  shows '1 address=192.0.2.7'
  shows 'table=arp address=192.0.2.1'
  shows 'table=tcp'
  run 0 'confctl list neighbours | wc -l'
  [[ $output -eq 20002 ]] || fail 'these are not all'

  say 'A client that is killed in the middle of the list leaves nothing behind.'
  typed "confctl list neighbours & read -r line"
  start list.said tools/confctl/confctl list neighbours
  local list=$! said
  exec {said}<list.said
  hear "$said"
  run 0 "kill -KILL $list"
  ended "$list"
  exec {said}<&-
  run 0 'confctl count neighbours'
  stop neighbours
}
