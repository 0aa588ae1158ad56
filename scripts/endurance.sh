#!/usr/bin/env bash
# endurance.sh [CHEAP [SCANS]]: installs missing packages, builds, and calls the items of the plug-in
# very often in one process: by default 10000000 calls of the cheap items and 100000 of each item
# that searches. Takes about ten minutes. Needs root.
# Exit status 0: heap, descriptors, threads and resident memory are as before; 1: one has grown.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

for number in "$@"; do
  if [[ ! $number =~ ^[1-9][0-9]{0,9}$ ]] || [ $# -gt 2 ]; then
    echo "usage: scripts/endurance.sh [CHEAP [SCANS]]; found '$*'" >&2
    exit 2
  fi
done
install_missing "${build_packages[@]}" "${test_packages[@]}"
build_in build-test -DMIRT_BUILD_BENCH=ON
# shellcheck disable=SC2016 # the inner shell expands them
exec unshare --mount --pid --fork --kill-child --mount-proc bash -c '
  set -e
  mount -t tmpfs tmpfs /tmp
  mount -t tmpfs tmpfs /dev/shm
  "$0" "$@"' build-test/bin/mirt_endurance "${1:-10000000}" "${2:-100000}"
