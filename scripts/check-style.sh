#!/usr/bin/env bash
# check-style.sh format        every source is as clang-format writes it
# check-style.sh fix           makes it so
# check-style.sh tidy [file...] clang-tidy over the sources that are not tests (needs build/release)
set -euo pipefail
cd "$(dirname "$0")/.."

sources() { git ls-files --cached --others --exclude-standard -- "$@"; }

case ${1:-} in
  format) sources '*.h' '*.cpp' | xargs --no-run-if-empty clang-format --dry-run --Werror ;;
  fix) sources '*.h' '*.cpp' | xargs --no-run-if-empty clang-format -i ;;
  tidy)
    shift
    if [[ $# -eq 0 ]]; then
      mapfile -t files < <(sources '*.cpp' ':!tests' ':!bench' ':!fuzz')
    else
      files=("$@")
    fi
    printf '%s\n' "${files[@]}" |
      xargs -P "$(nproc)" -n 1 clang-tidy -p build/release --quiet \
        --extra-arg=-Wno-unknown-warning-option 2>/dev/null
    ;;
  *)
    sed -n '2,4s/^# //p' "$0"
    exit 2
    ;;
esac
