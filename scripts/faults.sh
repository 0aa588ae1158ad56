#!/usr/bin/env bash
# faults.sh: installs missing packages, builds, and runs each command of mirt-monitor with faults of
# system calls and of allocations (docs/reliability.md). Takes about eight minutes on two processors.
# Exit status 0: every rule is kept; 1: a rule is broken, with its line; 77: cannot mount, needs root
# or user namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

install_missing "${build_packages[@]}" "${test_packages[@]}"
build_in build-test -DMIRT_BUILD_BENCH=ON
exec tests/own_processes.sh tests/faults.py build-test/bin
