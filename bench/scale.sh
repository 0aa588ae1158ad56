#!/usr/bin/env bash
# scale.sh [ROW...]: measures mirt-monitor with many watches over many processes, beside Debian's
# packages prometheus-process-exporter and collectd-core, which watch the same processes.
#
# A ROW is PROCESSES/PATTERNS or PROCESSES/PATTERNS/PERIOD, for example 2000/100 or 10000/100/5.
# The default is 500/10 500/100 2000/10 2000/100 10000/100/5. Each pattern selects one process and is
# watched for existence, memory, CPU and handles.
#
# The programs run in turn, in a PID namespace of their own with idle processes, for WINDOW seconds
# (default 20) and REPEATS times (default 3). The tables show medians. BUILD is the build directory
# (default build). Needs root, curl, and apt-get for packages that are not installed: these are
# unpacked in BUILD/peers, not installed.
set -euo pipefail
cd "$(dirname "$0")/.."
export LC_ALL=C
if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' bench/scale.sh
  exit 0
fi
build=${BUILD:-build} window=${WINDOW:-20} repeats=${REPEATS:-3}
rows=("${@:-500/10}")
[ $# -gt 0 ] || rows=(500/10 500/100 2000/10 2000/100 10000/100/5)
port=19256

fail() { echo "scale.sh: $*" >&2; exit 1; }

# peer PROGRAM PACKAGE: the path of a peer's program, unpacked first if it is not installed.
peer() {
  local path
  if path=$(command -v "$1"); then
    echo "$path"
    return
  fi
  path=$build/peers
  if [ ! -e "$path/$2" ]; then
    mkdir -p "$path/$2.deb"
    (cd "$path/$2.deb" && apt-get download -qq "$2" >/dev/null 2>&1) || fail "no package $2"
    dpkg -x "$path/$2.deb"/*.deb "$path/$2"
  fi
  find "$PWD/$path/$2/usr" -path "*bin/$1" -type f
}

# In a PID namespace of its own, with a tmpfs for configurations and output.
if [ "${MIRT_SCALE_INSIDE:-}" != yes ]; then
  for program in mirt-monitor mirt_idle_crowd; do
    [ -x "$build/bin/$program" ] || fail "$build/bin/$program is missing: build it first"
  done
  command -v curl >/dev/null || fail "curl is missing"
  exporter=$(peer prometheus-process-exporter prometheus-process-exporter)
  collectd=$(peer collectd collectd-core)
  export exporter collectd MIRT_SCALE_INSIDE=yes
  exec unshare --mount --pid --fork --kill-child --mount-proc bash bench/scale.sh "${rows[@]}"
fi
work=$build/scale-work
mkdir -p "$work"
mount -t tmpfs tmpfs "$work"

# Configurations. The selected processes are spread over all of them.

numbers() { awk -v n="$1" -v p="$2" 'BEGIN { for (i = 0; i < p; ++i) print int(i * n / p) }'; }

instance() {
  printf '[[instance]]\nname = "%s"\nitem = "%s"\nperiod = %s\n' "$1" "$2" "$period"
  [ -z "${3:-}" ] || printf 'params = [{ name = "%s", value = "%s" }]\n' "$3" "$4"
}

# monitor_config wildcard|exact PROCESSES PATTERNS
monitor_config() {
  local number name prefix='mirt-bench-idle --worker'
  instance system-cpu GetSysCPU
  instance system-memory GetSysMemory
  instance root GetDiskUsage Directory /
  for number in $(numbers "$2" "$3"); do
    name="$prefix $number"
    if [ "$1" = exact ]; then
      instance "exist-$number" IsExistProcess ProcessName "$name"
      instance "memory-$number" GetProcessMemory ProcessName "$name"
      instance "cpu-$number" GetProcessSysCPU ProcessName "$name"
      instance "handle-$number" GetProcessHandle ProcessName "$name"
    else
      instance "exist-$number" IsExistProcessExtern ProcessName "$name"
      instance "memory-$number" GetProcessMemoryFuzzyMatch ProcessName "*idle --worker $number"
      instance "cpu-$number" GetProcessSysCPUFuzzyMatch ProcessName "*idle --worker $number"
      instance "handle-$number" GetProcessHandleFuzzyMatch ProcessName "*idle --worker $number"
    fi
  done
}

exporter_config() {
  echo 'process_names:'
  numbers "$1" "$2" | sed "s/.*/  - { name: p&, cmdline: ['idle --worker &\$'] }/"
}

collectd_config() {
  local share=${collectd%/sbin/collectd}
  printf 'BaseDir "%s"\nPIDFile "%s/pid"\nPluginDir "%s/lib/collectd"\n' "$work" "$work" "$share"
  printf 'TypesDB "%s/share/collectd/types.db"\nInterval %s\nLoadPlugin processes\n' "$share" "$period"
  printf '<Plugin processes>\nCollectFileDescriptor true\n'
  numbers "$1" "$2" | sed 's/.*/ProcessMatch "p&" "idle --worker &$"/'
  printf '</Plugin>\n'
}

# Measuring one process.

ticks() { awk '{ sub(/.*\) /, ""); print $12 + $13 }' "/proc/$1/stat"; }
memory_kib() { awk '/^VmRSS/ { print $2 }' "/proc/$1/status"; }
seconds() { date +%s.%N; }
lines() { grep -vcE ' (blind|failed|late|pending) ' "$work/output" || true; }

# System calls in one second; - if neither perf nor strace can count them.
system_calls() {
  local text=''
  if text=$(perf stat -x, -e raw_syscalls:sys_enter -p "$1" -- sleep "$((2 * period))" 2>&1) &&
    [[ $text =~ ^[0-9]+, ]]; then
    awk -F, -v s="$((2 * period))" 'NR == 1 { printf "%.0f\n", $1 / s }' <<<"$text"
  else
    echo -
  fi
}

# measure LABEL PID DUE-CALLS: appends "LABEL CPU-MS MEMORY-KIB SYSTEM-CALLS ANSWERED" to the row.
# DUE-CALLS are those in one period; 0: not counted.
measure() {
  local label=$1 pid=$2 due=$3 before before_lines from spent answered=-
  before=$(ticks "$pid") before_lines=$(lines) from=$(seconds)
  sleep "$window"
  spent=$(awk -v a="$before" -v b="$(ticks "$pid")" -v f="$from" -v t="$(seconds)" \
    'BEGIN { printf "%.1f", (b - a) * 10 / (t - f) }')
  [ "$due" -eq 0 ] || answered=$(awk -v a="$before_lines" -v b="$(lines)" -v d="$due" -v p="$period" \
    -v f="$from" -v t="$(seconds)" 'BEGIN { printf "%.1f", 100 * (b - a) / (d * (t - f) / p) }')
  echo "$label $spent $(memory_kib "$pid") $(system_calls "$pid") $answered" >>"$work/measured"
}

stop() {
  kill "$1"
  wait "$1" 2>/dev/null || true
}

run_monitor() {
  local label=$1 due=$((4 * $3 + 3)) pid from
  monitor_config "$1" "$2" "$3" >"$work/monitor.toml"
  : >"$work/output"
  from=$(seconds)
  "$build/bin/mirt-monitor" run --config "$work/monitor.toml" >"$work/output" 2>"$work/log" &
  pid=$!
  until [ "$(lines)" -ge "$due" ]; do
    kill -0 "$pid" || fail "mirt-monitor ended: $(tail -1 "$work/log")"
    sleep 0.05
  done
  awk -v l="$label" -v f="$from" -v t="$(seconds)" 'BEGIN { print l, t - f }' >>"$work/first"
  sleep "$((2 * period))"
  measure "$label" "$pid" "$due"
  stop "$pid"
}

scrape() { curl -s --max-time 60 "http://127.0.0.1:$port/metrics"; }

run_exporter() {
  local pid scraper found
  exporter_config "$1" "$2" >"$work/exporter.yml"
  "$exporter" -config.path "$work/exporter.yml" -web.listen-address "127.0.0.1:$port" \
    -threads=false -gather-smaps=false >"$work/log" 2>&1 &
  pid=$!
  until scrape >"$work/metrics"; do sleep 0.1; done
  found=$(grep -c '^namedprocess_namegroup_num_procs.* 1$' "$work/metrics" || true)
  [ "$found" -eq "$2" ] || fail "the process exporter found $found processes"
  (while sleep "$period"; do scrape >/dev/null; done) &
  scraper=$!
  sleep "$((2 * period))"
  measure exporter "$pid" 0
  stop "$scraper"
  stop "$pid"
}

run_collectd() {
  local pid
  collectd_config "$1" "$2" >"$work/collectd.conf"
  "$collectd" -f -C "$work/collectd.conf" >"$work/log" 2>&1 &
  pid=$!
  sleep "$((2 * period + 1))"
  measure collectd "$pid" 0
  stop "$pid"
}

# The table.

median() {
  awk -v l="$1" -v c="$2" '$1 == l { print $c }' "$work/measured" | sort -g |
    awk '{ v[NR] = $1 } END { print NR ? v[int((NR + 1) / 2)] : "-" }'
}
range() {
  awk -v l="$1" '$1 == l { print $2 }' "$work/measured" | sort -g |
    awk 'NR == 1 { a = $1 } { b = $1 } END { print a "-" b }'
}

show_row() {
  local label cheapest
  cheapest=$(printf '%s\n' "$(median exporter 2)" "$(median collectd 2)" | sort -g | head -1)
  for label in wildcard exact exporter collectd; do
    printf '%-14s %-9s %8s %15s %7s %9s %9s %9s %7s\n' "$1" "$label" "$(median "$label" 2)" \
      "$(range "$label")" \
      "$(awk -v a="$(median "$label" 2)" -v b="$cheapest" 'BEGIN { printf "%.2f", a / b }')" \
      "$(awk -v k="$(median "$label" 3)" 'BEGIN { printf "%.1f", k / 1024 }')" \
      "$(median "$label" 4)" "$(median "$label" 5)" \
      "$(awk -v l="$label" '$1 == l { print $2 }' "$work/first" | sort -g | head -1)"
  done
}

run_row() {
  local processes patterns repeat started='' crowd keep
  IFS=/ read -r processes patterns period <<<"$1"
  period=${period:-1}
  rm -f "$work"/{measured,first,crowd}
  mkfifo "$work/crowd"
  "$build/bin/mirt_idle_crowd" "$processes" <"$work/crowd" >"$work/started" &
  crowd=$!
  exec {keep}>"$work/crowd"
  until [ -n "$started" ]; do
    kill -0 "$crowd" || fail "no idle processes"
    sleep 0.1
    read -r started <"$work/started" || true
  done
  [ "$started" -eq "$processes" ] || fail "only $started processes could be started"
  for ((repeat = 0; repeat < repeats; ++repeat)); do
    run_monitor wildcard "$processes" "$patterns"
    run_exporter "$processes" "$patterns"
    run_collectd "$processes" "$patterns"
    run_monitor exact "$processes" "$patterns"
  done
  show_row "$1"
  eval "exec $keep>&-"
  wait "$crowd" || true
}

echo "ms: processor time of one second, median and range; ratio: to the cheaper of the two peers;"
echo "MiB: resident; calls: system calls of one second; %: due calls that were answered;"
echo "first: seconds until all instances had a result. Load of the machine: $(cut -d' ' -f1-3 /proc/loadavg)"
printf '%-14s %-9s %8s %15s %7s %9s %9s %9s %7s\n' row program ms range ratio MiB calls % first
for row in "${rows[@]}"; do run_row "$row"; done
