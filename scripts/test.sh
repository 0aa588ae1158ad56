#!/usr/bin/env bash
# test.sh [CTEST-ARGUMENT...]: installs missing packages, checks the sources (scripts/lint.sh --quick),
# builds and runs all tests: in the release build, with AddressSanitizer and
# UndefinedBehaviorSanitizer, and the tests with several threads with ThreadSanitizer. The release
# build also tests the Debian packages (scripts/test-service.sh). If a suite fails, the next one still
# runs. The summary at the end has one line for each suite; the exit status is 1 if a suite has
# failed.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

install_missing "${build_packages[@]}" "${test_packages[@]}"

# Most tests wait most of the time.
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-3}

log=$(mktemp)
trap 'rm -f "$log"' EXIT
summary=()
failed=0

# outcome NAME WORDS: keeps one line for the summary.
outcome() { summary+=("$(printf '%-50s %s' "$1" "$2")"); }

# suite NAME DIRECTORY CMAKE-ARGUMENT... [-- CTEST-ARGUMENT...]
suite() {
  local name=$1 directory=$2 configuration=()
  shift 2
  echo "== $name"
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    configuration+=("$1")
    shift
  done
  [ $# -eq 0 ] || shift
  if ! build_in "$directory" "${configuration[@]}"; then
    outcome "$name" "FAILED: it could not be built"
    failed=1
    return
  fi
  ctest --test-dir "$directory" --output-on-failure --no-tests=error "$@" 2>&1 | tee "$log" ||
    failed=1
  local tests skipped
  tests=$(grep -E 'tests? (passed|failed)' "$log" || echo "FAILED: no test ran")
  skipped=$(grep -cE '^ *[0-9]+/[0-9]+ Test .*\*\*\*Skipped' "$log" || true)
  outcome "$name" "$tests${skipped:+, $skipped skipped}"
}

if scripts/lint.sh --quick; then
  outcome "sources" "no findings"
else
  outcome "sources" "FAILED"
  failed=1
fi
suite "release" build-test -DMIRT_BUILD_BENCH=ON -- "$@"
suite "address and undefined-behaviour sanitizers" build-asan -DCMAKE_BUILD_TYPE=Debug \
  -DMIRT_BUILD_BENCH=OFF -DMIRT_SANITIZE=address,undefined -- "$@"
suite "thread sanitizer" build-tsan -DCMAKE_BUILD_TYPE=Debug -DMIRT_BUILD_BENCH=OFF \
  -DMIRT_SANITIZE=thread -- -L threads "$@"

echo "== summary"
printf '%s\n' "${summary[@]}"
exit $failed
