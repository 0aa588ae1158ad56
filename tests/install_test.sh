#!/usr/bin/env bash
# install_test.sh BUILD SOURCE LIBDIR: installs into an empty prefix, moves it, and builds a small
# outside project against it, once by find_package and once by pkg-config. Each must run, and so must
# the monitor with the plug-in of that prefix.
set -euo pipefail
build=$1
source=$2
libdir=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$prefix" # nothing may remember where it was installed to

# The headers are clean under the warnings of others, be they the others' own or the system's.
warnings="-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror"
cpp_headers="common_plugin.h mirt_cmdhelper.h mirt_timeutil.h"
for header in "$prefix"/include/mirt/*.h; do
  name=$(basename "$header")
  echo "#include <$name>" >>"$work/all.cpp"
  [[ " $cpp_headers " = *" $name "* ]] || echo "#include <$name>" >>"$work/all.c"
done
for how in -I -isystem; do
  # shellcheck disable=SC2086
  g++ -std=c++17 -fsyntax-only $warnings -Wold-style-cast $how "$prefix/include/mirt" "$work/all.cpp"
  # shellcheck disable=SC2086
  cc -std=gnu11 -fsyntax-only $warnings $how "$prefix/include/mirt" "$work/all.c"
done

cmake -S "$source/tests/outside" -B "$work/by-package" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/by-package" >/dev/null
"$work/by-package/outside"

# As docs/embedding.md has it.
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
# shellcheck disable=SC2046
cc -std=gnu11 "$source/tests/outside/outside.c" -o "$work/by-pkg-config" \
  $(pkg-config --cflags --libs mirt_linux_plugin) \
  -Wl,-rpath,"$(pkg-config --variable=libdir mirt_linux_plugin)"
"$work/by-pkg-config"
# shellcheck disable=SC2046
cc -std=gnu11 $(pkg-config --cflags mirt_linux_plugin) "$prefix/share/mirt/examples/embed.c" \
  -o "$work/embed"
"$work/embed" "$(pkg-config --variable=plugin mirt_linux_plugin)" GetSysMemory

for file in README.md LICENSE docs/embedding.md examples/this-machine.toml; do
  test -s "$prefix/share/mirt/$file"
done

if [ -x "$prefix/bin/mirt-monitor" ]; then
  cd / # where no plug-in is
  "$prefix/bin/mirt-monitor" once GetSysMemory
  # Without its own plug-in there is none: it was not taken from the build.
  rm "$prefix/$libdir"/libmirt_linux_plugin.so*
  if "$prefix/bin/mirt-monitor" once GetSysMemory 2>"$work/error"; then exit 1; fi
  grep -q "cannot load the plug-in" "$work/error"
fi
echo "installed, moved and used"
