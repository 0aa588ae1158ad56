#!/usr/bin/env bash
# test.sh [CTEST-ARGUMENT...]: installs missing packages, checks the sources (scripts/lint.sh --quick),
# builds and runs all tests: in the release build, with AddressSanitizer and
# UndefinedBehaviorSanitizer, and the tests with several threads with ThreadSanitizer. The release
# build also tests the Debian packages (scripts/test-service.sh). Suites run at the same time; if one
# fails, the others still run. The summary at the end has one line for each suite; the exit status is
# 1 if a suite has failed.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

install_missing "${build_packages[@]}" "${test_packages[@]}"

# Most tests wait most of the time.
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-4}

logs=$(mktemp -d)
builder=''
others=''
end_background() {
  local group
  for group in $builder $others; do kill -- "-$group" 2>/dev/null || true; done
  rm -rf "$logs"
}
trap end_background EXIT

# outcome SUITE NAME WORDS: keeps its line of the summary.
outcome() { printf '%-50s %s\n' "$2" "$3" >"$logs/$1.outcome"; }

# build DIRECTORY [--target TARGET] CMAKE-ARGUMENT...: writes its exit status to a file.
build() {
  local status=0
  build_in "$@" || status=$?
  echo "$status" >"$logs/$1.status"
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
  while [ ! -s "$logs/$directory.status" ] && kill -0 "$builder"; do sleep 1; done
  if [ "$(cat "$logs/$directory.status")" != 0 ]; then
    [ ! -e "$logs/builds" ] || cat "$logs/builds" >&2
    outcome "$directory" "$name" "FAILED: it could not be built"
    touch "$logs/failed"
    return
  fi
  ctest --test-dir "$directory" --output-on-failure --no-tests=error "$@" 2>&1 |
    tee "$logs/$directory.tests" || touch "$logs/failed"
  tests=$(grep -E 'tests? (passed|failed)' "$logs/$directory.tests" || echo "FAILED: no test ran")
  skipped=$(grep -cE '^ *[0-9]+/[0-9]+ Test .*\*\*\*Skipped' "$logs/$directory.tests" || true)
  outcome "$directory" "$name" "$tests${skipped:+, $skipped skipped}"
}

if scripts/lint.sh --quick; then
  outcome sources "sources" "no findings"
else
  outcome sources "sources" "FAILED"
  touch "$logs/failed"
fi
build build-test -DMIRT_BUILD_BENCH=ON
set -m # what runs in the background gets a process group, so that it can be ended
{
  renice -n 10 "$BASHPID" >/dev/null # some tests are busy until something happens
  build_with_sanitizers
} >"$logs/builds" 2>&1 &
builder=$!
# Beside the release tests, of which the one of the packages takes longest and waits for most of it.
suite "address and undefined-behaviour sanitizers" build-asan "$@" >"$logs/build-asan.shown" 2>&1 &
others=$!
set +m
suite "release" build-test "$@"
suite "thread sanitizer" build-tsan -L threads "$@"
wait "$others" || touch "$logs/failed"
cat "$logs/build-asan.shown"

echo "== summary"
cat "$logs"/{sources,build-test,build-asan,build-tsan}.outcome
[ ! -e "$logs/failed" ]
