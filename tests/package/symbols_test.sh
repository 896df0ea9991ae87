#!/usr/bin/env bash
# symbols_test.sh <libconfkit.so>: it shows the names of the interface, and none of what it is made of.
set -euo pipefail

what='(typeinfo|typeinfo name|vtable|VTT|guard variable) for |(non-)?virtual thunk to '
ours='(nv::|AMap|AHolder|AOmap|Object|OObject|CfgMan|GetallState|StatefulGetall|InvokeScript|CfgHandler|ItemOrder|NotifyGuard|mkSubscrBasic|operator<< *\(.*CfgMan::)'
below='sqlite3|\buv_|boost::'

symbols=$(nm --dynamic --demangle --defined-only "$1" | cut -d' ' -f3-)
foreign=$(grep -vE "^($what)?$ours" <<<"$symbols" || true)
foreign+=$(grep -E "$below" <<<"$symbols" || true)
if [[ -n $foreign ]]; then
  printf 'Symbols that should not show:\n%s\n' "$foreign"
  exit 1
fi
for needed in 'nv::message::' 'nv::Handler::' 'nv::getLooper' 'nv::stack(' 'vtable for AMap' 'vtable for CfgMan::RunTask' \
  'operator<<(std::ostream&, CfgMan::Item const&)' 'mkSubscrBasic('; do
  grep -qF "$needed" <<<"$symbols" || { echo "Missing: $needed"; exit 1; }
done
