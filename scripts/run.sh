#!/usr/bin/env bash
# Installs what is missing, builds, and runs mirt-monitor: with the arguments given, or for three
# rounds over this machine with the shipped example configuration.
set -euo pipefail
called_from=$PWD
cd "$(dirname "$0")/.."
. scripts/setup.sh

install_missing "${build_packages[@]}"
build_in build -DMIRT_BUILD_TESTS=OFF -DMIRT_BUILD_BENCH=OFF

if [ $# -gt 0 ]; then
  monitor=$PWD/build/bin/mirt-monitor
  cd "$called_from" # so that file names mean what the caller meant
  exec "$monitor" "$@"
fi
# The example finds the monitor itself by exactly this command line.
exec build/bin/mirt-monitor run --config examples/this-machine.toml --rounds 3
