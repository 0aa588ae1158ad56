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
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-4}

logs=$(mktemp -d)
builder=''
trap '[ -z "$builder" ] || kill -- "-$builder" 2>/dev/null || true; rm -rf "$logs"' EXIT
summary=()
failed=0

# outcome NAME WORDS: keeps one line for the summary.
outcome() { summary+=("$(printf '%-50s %s' "$1" "$2")"); }

# build DIRECTORY [--target TARGET] CMAKE-ARGUMENT...: writes its exit status to a file.
build() {
  local status=0
  build_in "$@" || status=$?
  echo "$status" >"$logs/$1"
}

# Builds for the sanitizers while the tests of the release build wait.
build_with_sanitizers() {
  build build-asan -DCMAKE_BUILD_TYPE=Debug -DMIRT_BUILD_BENCH=OFF -DMIRT_SANITIZE=address,undefined
  build build-tsan --target thread_tests -DCMAKE_BUILD_TYPE=Debug -DMIRT_BUILD_BENCH=OFF \
    -DMIRT_SANITIZE=thread
}

# suite NAME DIRECTORY [CTEST-ARGUMENT...]: waits for its build.
suite() {
  local name=$1 directory=$2 tests skipped
  shift 2
  echo "== $name"
  while [ ! -s "$logs/$directory" ] && kill -0 "$builder"; do sleep 1; done
  if [ "$(cat "$logs/$directory")" != 0 ]; then
    [ ! -e "$logs/builds" ] || cat "$logs/builds" >&2
    outcome "$name" "FAILED: it could not be built"
    failed=1
    return
  fi
  ctest --test-dir "$directory" --output-on-failure --no-tests=error "$@" 2>&1 |
    tee "$logs/tests" || failed=1
  tests=$(grep -E 'tests? (passed|failed)' "$logs/tests" || echo "FAILED: no test ran")
  skipped=$(grep -cE '^ *[0-9]+/[0-9]+ Test .*\*\*\*Skipped' "$logs/tests" || true)
  outcome "$name" "$tests${skipped:+, $skipped skipped}"
}

if scripts/lint.sh --quick; then
  outcome "sources" "no findings"
else
  outcome "sources" "FAILED"
  failed=1
fi
build build-test -DMIRT_BUILD_BENCH=ON
set -m # the builds get a process group, so that they can be ended
{
  renice -n 10 "$BASHPID" >/dev/null
  build_with_sanitizers
} >"$logs/builds" 2>&1 &
builder=$!
set +m
suite "release" build-test "$@"
suite "address and undefined-behaviour sanitizers" build-asan "$@"
suite "thread sanitizer" build-tsan -L threads "$@"

echo "== summary"
printf '%s\n' "${summary[@]}"
exit $failed
