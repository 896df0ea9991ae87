#!/usr/bin/env bash
# install_test.sh <build> <compiler>: installs to an empty place, then builds a program outside the
# project against it, through CMake and through pkg-config, and runs both.
set -euo pipefail
build=$1 compiler=$2
consumer=$(cd "$(dirname "$0")/consumer" && pwd)
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
prefix=$place/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null

cmake -G Ninja -S "$consumer" -B "$place/consumer" -DCMAKE_CXX_COMPILER="$compiler" \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$place/consumer" -j2
"$place/consumer/consumer"
"$place/consumer/consumer_test"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name confkit.pc)")
export PKG_CONFIG_PATH
read -ra flags <<<"$(pkg-config --cflags --libs confkit)"
"$compiler" -std=c++20 "$consumer/main.cpp" "${flags[@]}" -o "$place/plain"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir confkit) "$place/plain"

"$prefix/bin/confctl" --help >/dev/null
