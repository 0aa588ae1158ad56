#!/usr/bin/env bash
# fuzz.sh [SECONDS]: installs missing packages, builds the fuzzers with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs each for SECONDS (default 30), starting with its corpus.
# Inputs that fail are in build-fuzz/found; add useful ones to fuzz/corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"
seconds=${1:-30}
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: scripts/fuzz.sh [SECONDS]; SECONDS is '$seconds', expected a whole number from 1" >&2
  exit 2
fi

install_missing "${build_packages[@]}" "${fuzz_packages[@]}"
CC=clang CXX=clang++ build_in build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIRT_BUILD_FUZZ=ON \
  -DMIRT_BUILD_TESTS=OFF -DMIRT_BUILD_BENCH=OFF -DMIRT_BUILD_EXAMPLES=OFF \
  -DMIRT_SANITIZE=address,undefined

for target in read_file match text items config state command_line http alert heartbeats; do
  work=build-fuzz/corpus/$target
  found=build-fuzz/found/$target
  mkdir -p "$work" "$found"
  echo "== $target, $seconds s"
  build-fuzz/bin/fuzz_$target -max_total_time="$seconds" -max_len=8192 -verbosity=0 \
    -print_final_stats=1 -artifact_prefix="$found/" "$work" "fuzz/corpus/$target" 2>&1 |
    grep -E 'number_of_executed_units|new_units_added|not true|rror|SUMMARY' ||
    [ "${PIPESTATUS[0]}" -eq 0 ] || { # the fuzzer's status, whatever it printed
    echo "fuzz_$target failed; failing inputs: $(ls "$found")" >&2
    exit 1
  }
done
