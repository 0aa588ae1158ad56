#!/usr/bin/env bash
# install_test.sh BUILD SOURCE: installs into an empty prefix, moves it, and builds a small outside
# project against it, once by find_package and once by pkg-config. Each must run.
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix" # nothing may remember where it was installed to

for header in "$work"/prefix/include/mirt/*.h; do
  echo "#include <$(basename "$header")>" >>"$work/all.cpp"
done
g++ -std=c++17 -fsyntax-only -I"$work/prefix/include/mirt" "$work/all.cpp"

cmake -S "$source/tests/outside" -B "$work/by-package" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/by-package" >/dev/null
"$work/by-package/outside"

export PKG_CONFIG_PATH=$work/prefix/lib/pkgconfig
# shellcheck disable=SC2046
cc -std=gnu11 "$source/tests/outside/outside.c" -o "$work/by-pkg-config" \
  $(pkg-config --cflags --libs mirt_linux_plugin)
LD_LIBRARY_PATH=$work/prefix/lib "$work/by-pkg-config"

if [ -x "$work/prefix/bin/mirt-monitor" ]; then
  "$work/prefix/bin/mirt-monitor" once GetSysMemory
fi
echo "installed, moved and used"
