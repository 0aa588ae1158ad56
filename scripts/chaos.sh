#!/usr/bin/env bash
# chaos.sh [--seconds N] [--kills N]: installs missing packages, builds, and attacks running monitors:
# processes that start, end and rename themselves at a high rate, a stuck process, kill -9, full
# disks, a dead mount, limits of memory, descriptors and threads, steps of the clock. By default 60
# seconds of restless processes and 200 kills of each kind, about eight minutes. Needs root.
# Exit status 0: no failure; 1: a failure, with its line.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

seconds=60 kills=200
read_counts 1 "seconds kills" "$@"

install_missing "${build_packages[@]}" "${test_packages[@]}" libfaketime
build_in build-test -DMIRT_BUILD_BENCH=ON
export PROGRAMS=$PWD/build-test/bin seconds kills
# shellcheck disable=SC2016 # the inner shell expands them
exec unshare --mount --pid --fork --kill-child --mount-proc bash -c '
  set -e
  mount -t tmpfs tmpfs /tmp
  mount -t tmpfs tmpfs /dev/shm
  python3 bench/chaos.py "$PROGRAMS" "$seconds" "$kills"'
