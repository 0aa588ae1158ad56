#!/usr/bin/env bash
# lint.sh [--quick]: installs missing packages and checks the sources without running them: layout
# (clang-format), a build with clang, clang-tidy, cppcheck, shellcheck, and the order of the monitor's
# includes. Every check runs; the exit status is 1 if one has failed. clang-tidy skips files
# that have not changed since it found nothing in them: build-lint/tidy has their checksums. With
# --quick (scripts/test.sh), the build with clang, clang-tidy and cppcheck check only the plug-in
# and its libraries.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

install_missing "${build_packages[@]}" "${test_packages[@]}" "${lint_packages[@]}"

checked=(include platform host plugins mirtmonitor) others=OFF
if [ "${1:-}" != --quick ]; then
  checked+=(monitor examples bench) others=ON
fi
failed=()

# check NAME COMMAND...
check() {
  local name=$1
  shift
  echo "-- $name"
  "$@" || failed+=("$name")
}

layout() {
  find . -path './build*' -prune -o \( -name '*.cpp' -o -name '*.c' -o -name '*.h' \) -print0 |
    xargs -0 clang-format --dry-run -Werror
}

# Without precompiled headers and groups, so that each source must include what it uses.
clang_build() {
  CC=clang CXX=clang++ build_in build-lint -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
    -DMIRT_UNITY_BUILD=OFF \
    -DMIRT_BUILD_MONITOR=$others -DMIRT_BUILD_TESTS=$others -DMIRT_BUILD_BENCH=$others \
    -DMIRT_BUILD_EXAMPLES=$others
}

# tidy_file OBJECT: clang-tidy for its source. The compiler has listed the files that it depends on.
tidy_file() {
  local files=() source seen sum
  # With a compiler cache, the paths can be relative to the folder of the compilation.
  mapfile -t files < <(grep -oE '[^ :]+\.(cpp|c|h)( |$)' "$1.d" |
    (cd "${1%/CMakeFiles/*}" && xargs -r realpath -m) | grep "^$PWD/")
  [ ${#files[@]} -gt 0 ] || { # it has not been built
    echo "no dependencies of $1" >&2
    return 1
  }
  source=${files[0]#"$PWD/"}
  seen=build-lint/tidy/${source//\//_}
  # The static analyzer takes longer than all other checks for large headers, and finds nothing in the
  # macros of the test framework.
  local checks=()
  case $source in
    tests/* | bench/* | fuzz/*) checks=(--checks='-clang-analyzer-*') ;;
  esac
  sum=$({ echo "${checks[*]}"; cat "${files[@]}" .clang-tidy; } | sha256sum)
  [ "$sum" != "$(cat "$seen" 2>/dev/null)" ] || return 0
  # It counts what it suppresses in other people's headers on standard error.
  clang-tidy --quiet -p build-lint "${checks[@]}" "$source" 2>"$seen.errors" || {
    grep -vE '^[0-9]+ warnings?( treated as errors?)?( generated\.)?$' "$seen.errors" >&2
    return 1
  }
  echo "$sum" >"$seen"
}
export -f tidy_file

clang_tidy() {
  mkdir -p build-lint/tidy
  # A source in several programs is compiled several times.
  sed -nE 's/^ *"directory": "(.*)",/\1/p; s/^ *"command": .* -o ([^ ]+) -c .*/\1/p' \
    build-lint/compile_commands.json | paste -d / - - |
    awk '{ path = $0; sub("CMakeFiles/[^/]*/", "", path) } !seen[path]++' |
    xargs -P "$(nproc)" -I{} bash -c 'tidy_file {}'
}

# Not enabled: checks that report false errors for emplace_back(), placement new, functions that are
# try blocks, and text that an #include inserts into an initialiser. The compilers and clang-tidy check the same.
cpp_check() {
  cppcheck --quiet --error-exitcode=1 --enable=warning,performance,portability --inline-suppr \
    --std=c++17 --language=c++ --suppress=missingInclude --suppress=danglingTempReference \
    --suppress=returnTempReference --suppress=legacyUninitvar \
    --suppress=syntaxError --suppress=internalAstError:monitor/status/page_files.cpp \
    -Iinclude -Iplatform -Ihost -Imonitor -Imirtmonitor/plugin/linux \
    -Iplugins/libmirt_agent/heart "${checked[@]}"
}

check "clang-format" layout
check "shellcheck" shellcheck -x scripts/*.sh tests/*.sh .ci/run
check "include order" tests/include_order_test.sh monitor
check "cppcheck" cpp_check
check "build with clang" clang_build
check "clang-tidy" clang_tidy # after the build, which lists the dependencies

if [ ${#failed[@]} -gt 0 ]; then
  printf -v names ', %s' "${failed[@]}"
  echo "lint: failed: ${names:2}"
  exit 1
fi
echo "lint: no findings"
