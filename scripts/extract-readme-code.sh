#!/usr/bin/env bash
# extract-readme-code.sh <document> <name>: the code block that opens with ```cpp <name>
set -euo pipefail
awk -v opening='```cpp '"$2" '
  $0 == opening { inside = found = 1; next }
  inside && $0 == "```" { inside = 0 }
  inside
  END { exit !found }
' "$1"
