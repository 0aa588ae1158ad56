#!/usr/bin/env bash
# Installs missing packages, builds and runs all tests: in the release build, with AddressSanitizer
# and UndefinedBehaviorSanitizer, and the tests with several threads with ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

install_missing "${build_packages[@]}" "${test_packages[@]}"

run_tests() {
  local name=$1 directory=$2
  shift 2
  echo "== $name"
  ctest --test-dir "$directory" --output-on-failure --no-tests=error "$@"
}

build_in build-test -DMIRT_BUILD_BENCH=ON
run_tests "release" build-test "$@"
build_in build-asan -DCMAKE_BUILD_TYPE=Debug -DMIRT_BUILD_BENCH=OFF \
  -DMIRT_SANITIZE=address,undefined
run_tests "address and undefined-behaviour sanitizers" build-asan "$@"
build_in build-tsan -DCMAKE_BUILD_TYPE=Debug -DMIRT_BUILD_BENCH=OFF -DMIRT_SANITIZE=thread
run_tests "thread sanitizer" build-tsan -L threads "$@"
