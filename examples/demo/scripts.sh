# The script service, and a host that runs a script when its address changes.

show_scripts() {
  say 'A service keeps scripts and runs them. Only the system may store one.'
  serve scripts --store scripts.db
  local source="source='echo \"\$1 is now at \$2 (rights \$CONFKIT_RIGHTS)\" | tee -a moved.txt'"
  run 3 "confctl add scripts.101 name=moved $source"
  shows 'not allowed'
  run 0 "confctl --system add scripts.101 name=moved needs=4 $source"
  run 0 'confctl run scripts.101 moved nas 192.0.2.99'
  shows 'nas is now at 192.0.2.99'
  run 3 'confctl --rights 3 run scripts.101 moved nas 192.0.2.99'
  shows 'lacks rights'
  run 0 "confctl --system add scripts.101 name=endless time-limit=500 source='sleep 1000 & sleep 1000'"
  run 3 'confctl run scripts.101 endless'
  shows 'it ran longer than 500 ms'

  say 'A host runs it when its address changes, with the rights of who has set that: here 5.'
  rm -f moved.txt
  start_hosts
  run 0 'confctl add hosts name=laptop addresses=192.0.2.50'
  local laptop=${output#added }
  run 0 "confctl --rights 5 set hosts $laptop script='{\"1_u\": 1}'"
  run 0 "confctl set hosts $laptop addresses=192.0.2.51"
  for _ in {1..600}; do [[ -s moved.txt ]] && break; sleep 0.1; done
  run 0 'cat moved.txt'
  shows 'laptop is now at 192.0.2.51 (rights 5)'
  stop hosts
  stop scripts
}
