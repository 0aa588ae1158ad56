#!/usr/bin/env bash
# run_path_test.sh READELF FOLDER...: no program or library there may be made to load a library from
# where others can put one. Each element of a run path begins at the file's own folder (an empty one
# is the current folder), and leads to a folder that not everybody can write to.
set -euo pipefail
readelf=$1
shift

wrong=0
checked=0
complain() {
  echo "$1" >&2
  wrong=1
}
while IFS= read -r -d '' file; do
  run_path=$("$readelf" -d "$file" 2>/dev/null |
    sed -n 's/.*(\(RUNPATH\|RPATH\)).*\[\(.*\)\]$/\2:/p') || continue
  checked=$((checked + 1))
  while [ -n "$run_path" ]; do
    element=${run_path%%:*}
    run_path=${run_path#*:}
    # shellcheck disable=SC2016
    case $element in
    '$ORIGIN' | '$ORIGIN/'*) folder=$(dirname "$file")${element#'$ORIGIN'} ;;
    *)
      complain "$file: run path element '$element', expected one that begins with \$ORIGIN"
      continue
      ;;
    esac
    if [ -n "$(find "$folder" -maxdepth 0 -perm -o+w 2>/dev/null)" ]; then
      complain "$file: everybody can write to $folder of its run path"
    fi
  done
done < <(find "$@" -maxdepth 1 -type f -perm -u+x -print0)
[ "$checked" -gt 0 ] || complain "no programs found in $*"
echo "$checked files checked"
exit $wrong
