#!/usr/bin/env bash
# package.sh [--version VERSION] [--in FOLDER] [--again]: installs missing packages and builds the
# Debian packages mirt-monitor, libmirt-linux-plugin1 and libmirt-linux-plugin-dev into FOLDER, by
# default build-package. Prints their names. The same sources give the same bytes.
#   --version VERSION  the version of the packages, instead of that of packaging/debian/changelog
#   --again            keeps the files that an earlier build has compiled in FOLDER
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"

version='' folder=build-package again=''
while [ $# -gt 0 ]; do
  case $1 in
  --version) version=${2:?"--version needs a version"} && shift ;;
  --in) folder=${2:?"--in needs a folder"} && shift ;;
  --again) again=yes ;;
  *)
    echo "package.sh: found '$1', expected --version, --in or --again" >&2
    exit 2
    ;;
  esac
  shift
done

install_missing "${build_packages[@]}" "${package_packages[@]}"
tree=$folder/tree
[ -n "$again" ] || rm -rf "$folder"
mkdir -p "$tree"
rm -f "$folder"/*.deb
find "$tree" -mindepth 1 -maxdepth 1 ! -name 'obj-*' -exec rm -rf {} +
# Copies only files of the sources. Files that have not changed keep their times.
tar --create --exclude='./build*' --exclude=./.git --exclude=./.cache . |
  tar --extract --directory "$tree"
cp -a packaging/debian "$tree"
cp LICENSE "$tree/debian/copyright"
[ -z "$version" ] || sed -i "1s/(.*)/($version)/" "$tree/debian/changelog"

log=$folder/build.log
options=()
[ -z "$again" ] || options+=(--no-pre-clean)
# The build must not depend on the caller's environment.
(cd "$tree" && env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/nonexistent LC_ALL=C.UTF-8 \
  DEB_BUILD_OPTIONS="noautodbgsym parallel=$(nproc)" \
  dpkg-buildpackage --build=binary --unsigned-changes --unsigned-buildinfo "${options[@]}") \
  >"$log" 2>&1 || {
  cat "$log" >&2
  exit 1
}
printf '%s\n' "$folder"/*.deb
