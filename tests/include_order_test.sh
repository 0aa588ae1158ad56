#!/usr/bin/env bash
# include_order_test.sh FOLDER: each folder of the monitor's sources includes only itself and the
# folders that follow it in this list. docs/architecture.md shows the same order.
set -euo pipefail
order=(command status run alert state output config item text service proc)
cd "$1"

failed=0
rank() { # rank FOLDER: its place from the top; nothing if it has none
  local i
  for i in "${!order[@]}"; do
    [ "${order[$i]}" != "$1" ] || echo "$i"
  done
}
for folder in */; do
  folder=${folder%/}
  from=$(rank "$folder")
  if [ -z "$from" ]; then
    echo "$folder/ has no place in the order: ${order[*]}" >&2
    failed=1
    continue
  fi
  while IFS=: read -r file line included; do
    to=$(rank "${included%%/*}")
    if [ -n "$to" ] && [ "$to" -lt "$from" ]; then
      echo "$file:$line includes $included, which stands above $folder/" >&2
      failed=1
    fi
  done < <(grep -rnoP '^#include "\K[^"]+/[^"]+' "$folder")
done
checked=$(grep -rhoP '^#include "\K[^"]+/[^"]+' ./*/ | wc -l)
if [ "$checked" -lt 50 ]; then
  echo "only $checked includes were checked, expected those of the whole monitor" >&2
  failed=1
fi
exit $failed
