#!/usr/bin/env bash
# Installs missing packages, builds, and runs mirt-monitor with the given arguments. Without
# arguments it inspects this machine for three rounds with the example configuration.
set -euo pipefail
called_from=$PWD
cd "$(dirname "$0")/.."
. scripts/setup.sh

install_missing "${build_packages[@]}"
build_in build -DMIRT_BUILD_TESTS=OFF -DMIRT_BUILD_BENCH=OFF

if [ $# -gt 0 ]; then
  monitor=$PWD/build/bin/mirt-monitor
  cd "$called_from" # relative file names refer to the caller's directory
  exec "$monitor" "$@"
fi
# The example configuration finds the monitor's process by exactly this command line. The tree can
# belong to another user than root; what was built in it runs anyway, so its configuration may too.
exec build/bin/mirt-monitor run --config examples/this-machine.toml --rounds 3 \
  --allow-writable-config
