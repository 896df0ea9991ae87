#!/usr/bin/env bash
# Installs the Debian packages of the groups named: build, test, arm, bench.
# Says first what it installs. Does nothing, and needs no root, when all of them are there.
set -euo pipefail

declare -A groups=(
  [build]="g++ cmake ninja-build pkg-config libuv1-dev libsqlite3-dev libboost-dev libcli11-dev
           nlohmann-json3-dev"
  [test]="libgtest-dev googletest clang libclang-rt-14-dev clang-format clang-tidy"
  [arm]="g++-arm-linux-gnueabihf qemu-user"
  [bench]="libbenchmark-dev libprotobuf-dev protobuf-compiler libflatbuffers-dev"
)

is_installed() {
  dpkg-query -W -f '${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
}

missing=()
for group in "$@"; do
  for package in ${groups[$group]:?"install-packages.sh: no group $group"}; do
    is_installed "$package" || missing+=("$package")
  done
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

echo "Installing Debian packages for: $*"
printf '  %s\n' "${missing[@]}"

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  if ! command -v sudo >/dev/null; then
    echo "These need root once: run 'scripts/install-packages.sh $*' as root." >&2
    exit 1
  fi
  as_root=(sudo)
fi
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0)
"${apt[@]}" update || echo "apt-get update failed; trying with the package lists as they are." >&2
"${apt[@]}" install --yes --no-install-recommends "${missing[@]}" >/dev/null
