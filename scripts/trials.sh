#!/usr/bin/env bash
# trials.sh [--stops N] [--pauses N] [--loads N] [--rigs N]: installs missing packages, builds, and
# runs the trials of docs/reliability.md: by default 200 stops of the monitor, 200 pauses of its
# reader and 100 loads of the whole machine, with 10 monitors at a time. Takes about 20 minutes; the
# loads take all processors of this machine for up to 5 seconds each.
# Exit status 0: no fault; 1: a fault, with its line; 77: cannot mount, needs root or user namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

stops=200 pauses=200 loads=100 rigs=10
read_counts 0 "stops pauses loads rigs" "$@"

install_missing "${build_packages[@]}" "${test_packages[@]}"
build_in build-test -DMIRT_BUILD_BENCH=ON
exec build-test/bin/reliability_trials "$stops" "$pauses" "$loads" "$rigs"
