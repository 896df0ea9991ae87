#!/usr/bin/env bash
# A folder includes itself, the layers below, the standard library; Boost.Intrusive above the platform.
set -euo pipefail
cd "$(dirname "$0")/../.."
status=0

# check <files...> -- <pattern of what they may include>
check() {
  local pattern=${*: -1} found
  found=$(grep -nE '^ *# *include' "${@:1:$#-2}" /dev/null | grep -vE "include *($pattern)" || true)
  if [[ -n $found ]]; then
    echo "These may include only $pattern:"
    echo "$found"
    status=1
  fi
}

standard='<[a-z_0-9]+>'
check platform/*.h -- "$standard|\"platform/[a-z0-9_]+\.h\""
check message/*.{h,cpp} -- "$standard|\"(platform|message)/[a-z0-9_]+\.h\""
check containers/*.{h,cpp} -- "$standard|\"(platform|containers)/[a-z0-9_]+\.h\"|<boost/intrusive/"
check cfgman/*.{h,cpp} -- "$standard|\"(platform|message|cfgman)/[a-z0-9_]+\.h\"|<boost/intrusive/"
check getall/*.{h,cpp} -- "$standard|\"(platform|message|cfgman|getall)/[a-z0-9_]+\.h\""
check script/*.{h,cpp} -- "$standard|\"(platform|script)/[a-z0-9_]+\.h\"|\"containers/error_texts\.h\""
check testing/*.h -- "$standard|\"(platform|containers|testing)/[a-z0-9_]+\.h\""
exit $status
