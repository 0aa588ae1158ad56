#!/usr/bin/env bash
# Supervises three processes with examples/heartbeats.toml: one is stopped, one hangs while its loop
# still runs, one continues. The monitor reports the first two within two periods, with their flow
# ids, and clears the alarms when they resume. The demonstration mounts a private /dev/shm and /tmp
# for the table and the lock file. This needs root, or a machine that allows user namespaces.
# Exit status 0: every step succeeded; 77: skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"
. scripts/demo-common.sh

if [ "${1:-}" != --own-table ]; then
  install_missing "${build_packages[@]}"
  build_in build -DMIRT_BUILD_TESTS=OFF -DMIRT_BUILD_BENCH=OFF
  own_mounts=(unshare --mount --propagation private)
  [ "$(id -u)" -eq 0 ] || own_mounts+=(--user --map-root-user)
  if ! reason=$("${own_mounts[@]}" true 2>&1); then
    echo "Skipped: cannot create private mounts ($reason)." >&2
    exit 77
  fi
  exec "${own_mounts[@]}" -- bash scripts/demo-heartbeat.sh --own-table
fi
mount -t tmpfs tmpfs /dev/shm
case $PWD/ in
  /tmp/*) # the repository has to stay visible
    mkdir /dev/shm/repository
    mount --rbind . /dev/shm/repository
    mount -t tmpfs tmpfs /tmp
    mkdir -p "$PWD"
    mount --no-mtab --move /dev/shm/repository "$PWD" # only real root can write /etc/mtab
    cd "$PWD"
    ;;
  *) mount -t tmpfs tmpfs /tmp ;;
esac
work=$(mktemp -d)

start_process() { # start_process MODULE FLOW
  build/bin/supervised-process "$1" "$2" >"$work/$1" &
  children+=($!)
  within 10 grep -qs "beats as module $1" "$work/$1"
  sed 's/^/  /' "$work/$1"
}
said() { grep -qsE "$1" "$work/lines"; }
# raised NAME MODULE FLOW: the alarm, and its complete report.
raised() {
  local type
  type=$(printf '0x%04X' $(($2 | 0xF000)))
  said " $1 .*alarm raised: equals 0" && said \
    "report 0xF000020F  resType $type  resId supervised-proc:$3  .*MoudleId=$2 .*UserData=$3\$"
}
cleared() { said " $1 .*alarm cleared"; }
beats_of() { # beats_of MODULE: whether its heartbeat changed within a second
  sed -n "s/.*\"module\":$1,.*\"moved\":\([a-z]*\).*/\1/p" "$work/table"
}

echo "1. Three processes beat"
start_process 60001 101
start_process 60002 102
start_process 60003 103
# The tree may be that of somebody else.
build/bin/mirt-monitor run --config examples/heartbeats.toml --allow-writable-config \
  >"$work/lines" 2>"$work/log" &
monitor=$!
children+=("$monitor")
build/bin/mirt-monitor heartbeats
within 10 said ' scrubber +1\.00$'
expect "no alarm" sh -c "! grep -q alarm '$work/lines'"

echo "2. The writer is stopped; the reader hangs while its loop still runs"
kill -STOP "${children[0]}"
kill -USR1 "${children[1]}"
# Two periods, and one second more for a slow machine.
expect "alarm for the writer, with flow 101" within 3 raised writer 60001 101
expect "alarm for the reader, with flow 102" within 3 raised reader 60002 102
build/bin/mirt-monitor heartbeats --json >"$work/table"
expect "two of the three heartbeats have stopped" \
  test "$(beats_of 60001) $(beats_of 60002) $(beats_of 60003)" = "false false true"

echo "3. Both resume"
kill -CONT "${children[0]}"
kill -USR2 "${children[1]}"
expect "the writer's alarm cleared" within 3 cleared writer
expect "the reader's alarm cleared" within 3 cleared reader
kill "$monitor"
expect "the monitor ends with exit status 0" wait "$monitor"
expect "one report each, none for the scrubber" \
  test "$(grep -c ' report 0xF000020F ' "$work/lines")$(grep -c 'scrubber.*alarm' "$work/lines")" = 20
grep -E ' report |alarm' "$work/lines" | sed 's/^/    /'
echo "Every step succeeded."
