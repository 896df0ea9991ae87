#!/usr/bin/env bash
# same_test.sh <extracted> <example>: both are the same, and at most 40 lines.
set -euo pipefail
diff "$1" "$2"
[[ $(wc -l <"$1") -le 40 ]]
