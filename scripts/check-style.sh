#!/usr/bin/env bash
# check-style.sh format          every source is as clang-format writes it
# check-style.sh fix             makes it so
# check-style.sh tidy [file...]  clang-tidy over the sources that are not tests (needs build/release)
set -euo pipefail
cd "$(dirname "$0")/.."

format() {
  find . -path ./build -prune -o -regex '.*\.\(h\|cpp\)' -print0 | xargs -0 clang-format "$@"
}

tidy() {
  if [[ $# -eq 0 ]]; then
    mapfile -t files < <(find platform message containers cfgman getall script testing tools examples \
                              -name '*.cpp' 2>/dev/null)
    set -- "${files[@]}"
  fi
  # What g++ is told may be unknown to clang.
  printf '%s\n' "$@" | xargs -P "$(nproc)" -n 1 clang-tidy -p build/release --quiet \
    --extra-arg=-Wno-unknown-warning-option 2>/dev/null
}

case ${1:-} in
  format) format --dry-run --Werror ;;
  fix) format -i ;;
  tidy) tidy "${@:2}" ;;
  *)
    sed -n '2,4s/^# //p' "$0"
    exit 2
    ;;
esac
