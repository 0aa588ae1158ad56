#!/usr/bin/env bash
# Shows how the monitor handles a thread that really hangs in D state:
#   1. no log for seven calls, a report with the kernel stack from the 8th, value 1 from the 11th;
#   2. no signal to the data plane while recovery is denied, SIGUSR1 when it is allowed.
# Needs root to read kernel stacks and the kernel log. Exit status 0: every step succeeded.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"
. scripts/demo-common.sh
if [ "$(id -u)" -ne 0 ] || [ ! -c /dev/kmsg ]; then
  echo "demo-hang.sh needs root and /dev/kmsg to read kernel stacks and the kernel log." >&2
  exit 1
fi
install_missing "${build_packages[@]}"
build_in build -DMIRT_BUILD_TESTS=OFF -DMIRT_BUILD_BENCH=OFF
work=$(mktemp -d)

# The kernel drops log lines that come too fast. Turn that off for the demonstration.
devkmsg=/proc/sys/kernel/printk_devkmsg
devkmsg_before=$(cat $devkmsg)
restore_devkmsg() { echo "$devkmsg_before" >$devkmsg; }
restore=(restore_devkmsg)
echo on >$devkmsg || echo "  The kernel log may drop lines: $devkmsg cannot be changed." >&2

# configure FILE PATTERN ITEM REDUNDANCY PERIOD
configure() {
  cat >"$1" <<EOF
[recovery]
redundancy = "$4"

[[instance]]
name = "hung"
item = "$3"
period = $5
params = [{ name = "ProcessName", value = "$2" }]
EOF
}
values() { sed -n 's/.*"value":\([0-9]*\)\..*/\1/p' "$1" | tr -d '\n'; }

echo "1. A hung thread under CheckProcessStatusIsD, one call a second"
build/bin/hung-thread >"$work/hung" &
children=($!)
within 10 grep -qs 'hangs in D state' "$work/hung"
sed 's/^/  /' "$work/hung"
tid=$(sed 's/.*thread \([0-9]*\).*/\1/' "$work/hung")
configure "$work/hung.toml" 'build/bin/hung-thread' CheckProcessStatusIsD deny 1
mark="demo-hang $$ $RANDOM"
echo "$mark" >/dev/kmsg
build/bin/mirt-monitor run --config "$work/hung.toml" --rounds 12 --json \
  >"$work/results" 2>"$work/log"
dmesg | sed -n "/$mark/,\$p" | grep -v "$mark" >"$work/kernel" || true
echo "  values of the 12 calls: $(values "$work/results")"
expect "value 0 for ten calls, then 1 twice" \
  test "$(values "$work/results")" = 000000000011
expect "the output shows thread $tid, process ${children[0]} and its command line" \
  grep -q "\"tid\":$tid,\"process\":${children[0]},\"cmdline\":\"build/bin/hung-thread\"" \
  "$work/results"
expect "no log for seven calls, a report from the 8th call on" \
  test "$(sed -n "s/.* Tid $tid is D status. Detected times \([0-9]*\).*/\1/p" "$work/kernel" |
    tr '\n' ' ')" = "8 9 10 11 12 "
expect "the kernel stack follows the report" grep -q vfork "$work/kernel"
head -n 6 "$work/kernel" | sed 's/^/    /'
kill "${children[@]}"
wait "${children[@]}" || true
children=()

echo "2. The data plane hangs"
bash -c 'exec -a /QAV/bin/./app_data build/bin/app-data 12 --hang' >"$work/app" &
children=($!)
within 10 grep -qs 'hung thread' "$work/app"
sed 's/^/  /' "$work/app"
tid=$(sed -n 's/.*hung thread \([0-9]*\).*/\1/p' "$work/app")
for redundancy in deny allow; do
  configure "$work/app.toml" '/QAV/bin/./app_data 12*' CheckProcessStatusIsDForAppData \
    $redundancy 0.1
  build/bin/mirt-monitor run --config "$work/app.toml" --rounds 11 --json \
    >"$work/results" 2>"$work/log"
  if [ $redundancy = deny ]; then
    expect "recovery denied: the output shows the thread, the request is refused" \
      sh -c "grep -q '\"tid\":$tid,' '$work/results' && grep -q 'redundancyStatus(0)' '$work/log'"
    expect "no signal was sent" sh -c "! grep -q SIGUSR1 '$work/app'"
  else
    expect "recovery allowed: SIGUSR1 with the thread's id" \
      within 10 grep -qsx "SIGUSR1 with value $tid" "$work/app"
  fi
done
echo "Every step succeeded."
