#!/usr/bin/env bash
# check-style.sh format          every source is as clang-format writes it
# check-style.sh fix             makes it so
# check-style.sh tidy [file...]  clang-tidy over the sources that are not tests (needs build/release)
# check-style.sh analyze [file...]  the same with the static analyzer alone
set -euo pipefail
cd "$(dirname "$0")/.."

format() {
  find . -path ./build -prune -o -regex '.*\.\(h\|cpp\)' -print0 | xargs -0 clang-format "$@"
}

# lint <option of clang-tidy> [file...]
lint() {
  local option=$1
  shift
  if [[ $# -eq 0 ]]; then
    mapfile -t files < <(find platform message containers cfgman getall script testing tools examples \
                              -name '*.cpp' 2>/dev/null)
    set -- "${files[@]}"
  fi
  # What g++ is told may be unknown to clang.
  printf '%s\n' "$@" | xargs -P "$(nproc)" -n 1 clang-tidy -p build/release --quiet "$option" \
    --extra-arg=-Wno-unknown-warning-option 2>/dev/null
}

case ${1:-} in
  format) format --dry-run --Werror ;;
  fix) format -i ;;
  tidy) lint '--warnings-as-errors=*' "${@:2}" ;;
  analyze) lint '--checks=-*,clang-analyzer-*' "${@:2}" ;;
  *)
    sed -n '2,5s/^# //p' "$0"
    exit 2
    ;;
esac
