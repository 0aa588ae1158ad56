#!/usr/bin/env bash
# Three supervised processes under examples/heartbeats.toml: one is stopped, one hangs while its loop
# still runs, one goes on. The monitor names the two within two periods, sends the heartbeat-lost
# report with their flow ids, and clears the alarms when they go on. Table and lock file are the
# demonstration's own, in a /dev/shm and a /tmp that nobody else sees: that takes root, or a machine
# that allows user namespaces.
# Ends with exit code 0 if all was seen, 77 if it was skipped.
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
    echo "Skipped: no mounts of the demonstration's own ($reason)." >&2
    exit 77
  fi
  exec "${own_mounts[@]}" -- bash scripts/demo-heartbeat.sh --own-table
fi
mount -t tmpfs tmpfs /dev/shm
case $PWD/ in
  /tmp/*) # the repository has to stay in sight
    mkdir /dev/shm/repository
    mount --rbind . /dev/shm/repository
    mount -t tmpfs tmpfs /tmp
    mkdir -p "$PWD"
    mount --no-mtab --move /dev/shm/repository "$PWD" # its record is only for real root to write
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
# raised NAME MODULE FLOW: the alarm, and its report with everything in it.
raised() {
  local type
  type=$(printf '0x%04X' $(($2 | 0xF000)))
  said " $1 .*alarm raised: equals 0" && said \
    "report 0xF000020F  resType $type  resId supervised-proc:$3  .*MoudleId=$2 .*UserData=$3\$"
}
cleared() { said " $1 .*alarm cleared"; }
beats_of() { # beats_of MODULE: whether its heartbeat moved within a second
  sed -n "s/.*\"module\":$1,.*\"moved\":\([a-z]*\).*/\1/p" "$work/table"
}

echo "1. Three processes beat"
start_process 60001 101
start_process 60002 102
start_process 60003 103
build/bin/mirt-monitor run --config examples/heartbeats.toml >"$work/lines" 2>"$work/log" &
monitor=$!
children+=("$monitor")
build/bin/mirt-monitor heartbeats
within 10 said ' scrubber +1\.00$'
expect "no alarm" sh -c "! grep -q alarm '$work/lines'"

echo "2. The writer is stopped, the reader hangs while its loop goes on"
kill -STOP "${children[0]}"
kill -USR1 "${children[1]}"
# Two periods, and one more second for the machine to be slow in.
expect "the writer named, with flow 101" within 3 raised writer 60001 101
expect "the reader named, with flow 102" within 3 raised reader 60002 102
build/bin/mirt-monitor heartbeats --json >"$work/table"
expect "two of the three hearts stand still" \
  test "$(beats_of 60001) $(beats_of 60002) $(beats_of 60003)" = "false false true"

echo "3. Both go on"
kill -CONT "${children[0]}"
kill -USR2 "${children[1]}"
expect "the writer cleared" within 3 cleared writer
expect "the reader cleared" within 3 cleared reader
kill "$monitor"
expect "the monitor ends at once and well" wait "$monitor"
expect "each report sent once, none for the scrubber" \
  test "$(grep -c ' report 0xF000020F ' "$work/lines")$(grep -c 'scrubber.*alarm' "$work/lines")" = 20
grep -E ' report |alarm' "$work/lines" | sed 's/^/    /'
echo "All of it seen."
