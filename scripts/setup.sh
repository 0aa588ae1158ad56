#!/usr/bin/env bash
# Functions that install missing Debian packages and build. The other scripts source this file.
# shellcheck disable=SC2034 # those scripts use the lists of packages
set -euo pipefail

build_packages=(cmake g++ make libcli11-dev libcpp-httplib-dev libsystemd-dev libtomlplusplus-dev
                nlohmann-json3-dev pkg-config prometheus-cpp-dev)
browser_packages=(chromium chromium-driver python3-selenium)
fleet_packages=(prometheus prometheus-alertmanager iproute2 python3)
test_packages=(libgtest-dev libbenchmark-dev procps devscripts fish man-db pandoc python3
               python3-jsonschema systemd zsh "${browser_packages[@]}" "${fleet_packages[@]}")
package_packages=(debhelper dpkg-dev fakeroot lintian pandoc)
service_packages=(debootstrap systemd-container)
fuzz_packages=(clang libclang-rt-14-dev)
lint_packages=(clang clang-format clang-tidy cppcheck shellcheck)

# help_if_asked [ARGUMENT...]: with --help prints the script's first comment and exits.
help_if_asked() {
  [ "${1:-}" = --help ] || [ "${1:-}" = -h ] || return 0
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "scripts/${0##*/}"
  exit 0
}

# read_counts LEAST NAMES [--NAME N]...: sets the variable NAME for each option; NAMES lists them.
read_counts() {
  local least=$1 names=$2
  shift 2
  while [ $# -gt 0 ]; do
    if [[ $1 != --* || " $names " != *" ${1#--} "* ]]; then
      echo "usage: scripts/${0##*/}${names:+ [--${names// / N] [--} N]}; found '$1'" >&2
      exit 2
    fi
    if [[ ! ${2:-} =~ ^(0|[1-9][0-9]{0,5})$ ]] || [ "$2" -lt "$least" ]; then
      echo "$1 is '${2:-}', expected a whole number from $least to 999999" >&2
      exit 2
    fi
    printf -v "${1#--}" %s "$2"
    shift 2
  done
}

# install_missing PACKAGE...
install_missing() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "These Debian packages are missing: ${missing[*]}" >&2
      echo "Run this script as root, install sudo, or install them yourself." >&2
      exit 1
    fi
    as_root=(sudo)
  fi
  echo "Fetching the list of Debian packages" >&2
  "${as_root[@]}" apt-get update -qq >&2
  echo "Installing ${missing[*]}" >&2
  install_without_services "${missing[@]}"
}

# install_without_services PACKAGE...: for install_missing. Does not start or enable the services of
# the packages, because the scripts start these programs themselves. Does not change the machine's
# policy about services.
install_without_services() {
  local policy=/usr/sbin/policy-rc.d made=() status=0
  if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
    "${as_root[@]}" chmod 755 "$policy"
    made=("$policy")
  fi
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "$@" >&2 || status=$?
  [ ${#made[@]} -eq 0 ] || "${as_root[@]}" rm -f "${made[@]}"
  local package
  for package in "$@"; do
    [[ $package != prometheus* ]] ||
      "${as_root[@]}" systemctl disable "$package" >/dev/null 2>&1 || true
  done
  return $status
}

# build_in DIRECTORY [--target TARGET] [CMAKE-ARGUMENT...]: prints what it does, on a terminal with
# the progress of the build. Prints the log only if the build fails.
build_in() {
  local directory=$1 log status=0 target=()
  shift
  if [ "${1:-}" = --target ]; then
    target=(--target "$2")
    shift 2
  fi
  log=$(mktemp)
  echo "Building in $directory/ (the first time this takes a minute or two)" >&2
  {
    cmake -S . -B "$directory" -DMIRT_UNITY_BUILD=ON "$@" &&
      cmake --build "$directory" -j"$(nproc)" "${target[@]}"
  } 2>&1 | tee "$log" | show_progress || status=$?
  [ $status -eq 0 ] || cat "$log" >&2
  rm -f "$log"
  return $status
}

# show_progress: on a terminal, shows the latest line of its input, truncated to the terminal's width.
show_progress() {
  local line width
  if [ ! -t 2 ]; then
    cat >/dev/null
    return
  fi
  width=$(tput cols 2>/dev/null) || width=80
  while IFS= read -r line; do printf '\r\033[K%s' "${line:0:width-1}" >&2; done
  printf '\r\033[K' >&2
}
