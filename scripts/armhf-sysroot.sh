#!/usr/bin/env bash
# Unpacks Debian's armhf packages of libuv and SQLite into build/armhf-sysroot, for cmake/armhf.cmake.
#
# Installing them beside the host's would need a foreign architecture and equal versions of both;
# a private folder needs neither, and no root. apt keeps its lists for this in the same folder.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(libuv1 libuv1-dev libsqlite3-0 libsqlite3-dev)
host_headers=(include/boost include/CLI include/nlohmann
              share/cmake/CLI11 share/cmake/nlohmann_json)
sysroot=$PWD/build/armhf-sysroot
complete=$sysroot/complete
[[ ! $complete -nt scripts/armhf-sysroot.sh ]] || exit 0

rm -rf "$sysroot"
state=$sysroot/apt
mkdir -p "$state"/{lists,cache/archives}/partial "$sysroot"/usr/{include,share/cmake}
: >"$state/status"
apt=(apt-get -qq -o APT::Architecture=armhf -o APT::Architectures::=armhf
     -o APT::Sandbox::User=root -o Acquire::Languages=none
     -o Dir::State="$state" -o Dir::State::status="$state/status" -o Dir::Cache="$state/cache")

# A source without armhf, or a mirror in the middle of a sync, matters only if a package is missing.
"${apt[@]}" update || echo "Some package lists are missing; going on with the others." >&2
(cd "$state/cache/archives" && "${apt[@]}" download "${packages[@]}")
for deb in "$state"/cache/archives/*.deb; do
  dpkg-deb --extract "$deb" "$sysroot"
done
rm -rf "$state"

# The host's /usr/include as a whole would bring its C library's headers along.
for name in "${host_headers[@]}"; do
  ln -s "/usr/$name" "$sysroot/usr/$name"
done
touch "$complete"
