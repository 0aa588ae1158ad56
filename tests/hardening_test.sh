#!/usr/bin/env bash
# hardening_test.sh OBJDUMP FILE...: the protections that cmake/hardening.cmake asks for are in the
# files. Exit status 77: hardening-check (package devscripts) is missing.
set -euo pipefail
objdump=$1
shift
command -v hardening-check >/dev/null || exit 77

failed=0
for file in "$@"; do
  # Control-flow protection is looked for in the code: the linker marks only files in which every
  # object has it, and the C library's start code does not.
  options=(--nocfprotection)
  # In the plug-in the size of each buffer is either proved at compile time or not known, so there
  # is nothing to check at run time.
  [[ $file != *plugin* ]] || options+=(--nofortify)
  hardening-check "${options[@]}" "$file" || failed=1
  if [ "$(uname -m)" = x86_64 ] && ! "$objdump" -d "$file" | grep -c endbr64 >/dev/null; then
    echo "$file: no control-flow protection" >&2
    failed=1
  fi
done
exit $failed
