#!/usr/bin/env bash
# Fails unless the shared library's defined dynamic symbols are exactly the
# functions the public header declares with QAAISP_API.
set -euo pipefail
lib=$1 header=$2
want=$(grep -oE '^QAAISP_API[^;(]*[ *][A-Za-z_][A-Za-z0-9_]*\(' "$header" |
       sed -E 's/.*[ *]([A-Za-z_][A-Za-z0-9_]*)\($/\1/' | sort -u)
have=$(nm -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort -u)
if [ "$want" != "$have" ]; then
  echo "exported symbols differ from the header (< header, > library):"
  diff <(echo "$want") <(echo "$have") || true
  exit 1
fi
echo "$(echo "$have" | wc -l) exports match the header"
