#!/usr/bin/env bash
# test-service.sh [--quick]: installs missing packages, builds the Debian packages twice, and tests the
# service with a real systemd: in a minimal Debian in build-service/, started in namespaces of its own.
# With --quick it builds only what has changed, and does not compare two builds.
# Exit status 0: no fault; 1: a fault; 77: not possible here (it needs root, namespaces and a Debian
# mirror).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"
[ "$(id -u)" -eq 0 ] || exit 77
install_missing "${build_packages[@]}" "${package_packages[@]}" "${service_packages[@]}"
unshare --mount --pid --uts --ipc --cgroup --net --fork true || exit 77

work=$PWD/build-service
root=$work/root
machine='' leader=''
mkdir -p "$work"

step() { echo "-- $*"; }
fault() {
  echo "FAULT: $*" >&2
  [ -z "$leader" ] || inside journalctl --no-pager -n 60 -u mirt-monitor >&2 || true
  exit 1
}
inside() { nsenter --target "$leader" --all "$@"; }
# await WHAT COMMAND...: repeats the command until it succeeds; the limit is for a fault.
await() {
  local what=$1 tries
  shift
  for ((tries = 0; tries < 1200; tries++)); do
    ! "$@" >/dev/null 2>&1 || return 0
    sleep 0.1
  done
  fault "waited for: $what"
}
end_machine() {
  [ -n "$machine" ] || return 0
  kill "$machine" 2>/dev/null || true
  wait "$machine" 2>/dev/null || true
  machine='' leader=''
}
trap end_machine EXIT

first=$work/first second=$work/in/another/folder
if [ "${1:-}" = --quick ]; then
  step "the packages: lintian"
  scripts/package.sh --in "$first" --again >/dev/null
  second=$first
else
  step "the packages: lintian, and the same bytes from another build in another folder"
  scripts/package.sh --in "$first" >/dev/null
  scripts/package.sh --in "$second" >/dev/null
  for package in "$first"/*.deb; do
    cmp "$package" "$second/${package##*/}" || fault "not reproducible: ${package##*/}"
  done
fi
TMPDIR=$work lintian --allow-root --fail-on error,warning "$first"/*.changes || fault "lintian"
rm -rf "$work/packages"
mkdir "$work/packages"
cp "$first"/{mirt-monitor,libmirt-linux-plugin1}_*.deb "$work/packages/"
scripts/package.sh --in "$second" --again --version 1.0.1 >/dev/null
cp "$second"/{mirt-monitor,libmirt-linux-plugin1}_1.0.1_*.deb "$work/packages/"

step "a minimal Debian with the packages"
needed=$(for package in "$work"/packages/*_1.0.0_*.deb; do dpkg-deb -f "$package" Depends; done |
  tr ',' '\n' | sed 's/^ *//; s/ .*//' | grep -v '^libmirt' | sort -u | paste -sd,)
include=systemd,systemd-sysv,dbus,procps,$needed
if [ "$(cat "$work/debian.include" 2>/dev/null)" != "$include" ]; then
  rm -rf "$work/debian" "$work/debian.include"
  # shellcheck disable=SC1091
  debootstrap --variant=minbase --include="$include" "$(. /etc/os-release && echo "$VERSION_CODENAME")" \
    "$work/debian" >"$work/debootstrap.log" 2>&1 || {
    tail -3 "$work/debootstrap.log" >&2
    exit 77
  }
  echo "$include" >"$work/debian.include"
fi
rm -rf "$root"
cp -a "$work/debian" "$root"
cp -r "$work/packages" "$root/packages"
systemd-nspawn --quiet --directory="$root" --register=no --keep-unit \
  sh -c 'dpkg --install /packages/*_1.0.0_*.deb' >"$work/install.log" 2>&1 || fault "$(cat "$work/install.log")"

watches=$root/etc/mirt-monitor/conf.d/test.toml
cat >"$watches" <<'TOML'
every = "200ms"
[[process]]
name = "sleeper"
exact = "sleep 77777"
running = true
alert = ["note"]
[alert.note]
command = ["/bin/sh", "-c", "cat >> /var/lib/mirt-monitor/told"]
TOML
mkdir -p "$root/etc/systemd/system/mirt-monitor.service.d"
printf '[Service]\nWatchdogSec=15s\n' >"$root/etc/systemd/system/mirt-monitor.service.d/test.conf"

systemd-nspawn --quiet --directory="$root" --register=no --keep-unit --private-network --boot \
  --console=passive >"$work/boot.log" 2>&1 </dev/null &
machine=$!
# Before it there is another child, which ends.
has_leader() { leader=$(pgrep --parent "$machine" --exact systemd); }
await "the first process" has_leader
state_of() { inside systemctl show --property="$1" --value mirt-monitor; }
await "the service" inside systemctl is-active mirt-monitor

# Records of one kind of the journal, by the words of the catalogue.
id_of() { grep -B1 "^Subject: $1" packaging/mirt-monitor.catalog | sed -n 's/^-- //p'; }
records() { inside journalctl --output=json --no-pager MESSAGE_ID="$(id_of "$1")" MIRT_WATCH="$2"; }
# field NAME: of the last record on standard input.
field() { tail -1 | grep -oE "\"$1\":\"[^\"]*\"" | cut -d'"' -f4; }
has_record() { [ -n "$(records "$@")" ]; }
times_told() { grep -c "\"event\":\"$1\"" "$root/var/lib/mirt-monitor/told" || true; }
start_sleeper() {
  inside systemd-run --quiet --unit="sleeper-$RANDOM" sh -c 'exec sleep 77777'
  await "the process" inside pgrep -fx 'sleep 77777'
}
# The service runs again, as another process than $before.
# The process first: between an end and the restart it is 0.
runs_anew() { case $(state_of MainPID) in '' | 0 | "$before") false ;; *) [ "$(state_of ActiveState)" = active ] ;; esac; }

step "it is active and has told its state"
[ "$(state_of Type)" = notify ] || fault "the service does not notify"
status_is() { state_of StatusText | grep -q "$1"; }
await "the status text" status_is '^5 watches: '
await "the alarm of the process" has_record "An alarm was raised" sleeper.running
await "the alert" grep -q raised "$root/var/lib/mirt-monitor/told"
start_sleeper
await "the end of the alarm" has_record "An alarm was cleared" sleeper.running

step "commands ask it, and bash completes the names of its watches"
inside mirt-monitor status --check | grep -q . || fault "status --check says nothing"
# shellcheck disable=SC2016 # the shell inside expands it
inside bash -c '. /usr/share/bash-completion/completions/mirt-monitor
  COMP_WORDS=(mirt-monitor silence sleep) COMP_CWORD=2
  _mirt_monitor
  [ "${COMPREPLY[*]}" = sleeper.running ]' || fault "the name of a watch is not completed"

step "a reload with mistakes fails, and the previous configuration stays in force"
echo 'name = 7' >"$root/etc/mirt-monitor/conf.d/bad.toml"
! inside systemctl reload mirt-monitor 2>/dev/null || fault "a reload with mistakes was accepted"
inside journalctl --no-pager -u mirt-monitor | grep -q 'bad.toml:1: ' || fault "the mistake is not in the journal"
inside systemctl kill --signal=HUP --kill-who=main mirt-monitor
await "the refusal" status_is 'the last reload was refused'
[ "$(state_of ActiveState)" = active ] || fault "not active after a refused reload"
printf '[[process]]\nname = "another"\nexact = "sleep 5"\nmemory = true\n' \
  >"$root/etc/mirt-monitor/conf.d/bad.toml"
inside systemctl reload mirt-monitor || fault "a good configuration was refused"
await "the new watch" status_is '^6 watches: [^;]*$'

step "a watched process dies, and the journal has the record"
inside journalctl --quiet --rotate
inside journalctl --quiet --vacuum-time=1us
rm "$root/var/lib/mirt-monitor/told"
inside pkill -KILL -fx 'sleep 77777'
await "the alarm" has_record "An alarm was raised" sleeper.running
alarm=$(records "An alarm was raised" sleeper.running | field MIRT_ALARM)
[ -n "$alarm" ] || fault "the record has no MIRT_ALARM"
[ "$(records "An alarm was raised" sleeper.running | field PRIORITY)" = 2 ] || fault "wrong priority"
[ "$(records "An alarm was raised" sleeper.running | field MIRT_STATE)" = alarm ] || fault "wrong state"
inside journalctl --no-pager -x MIRT_ALARM="$alarm" | grep -q 'To silence its alerts' ||
  fault "journalctl -x does not explain the record"
await "the state file" grep -q "$alarm" "$root/var/lib/mirt-monitor/state.json"
await "the alert" grep -q raised "$root/var/lib/mirt-monitor/told"

# still_raised WHEN: the alarm is the one from before, and nobody was told again.
still_raised() {
  grep -q "$alarm" "$root/var/lib/mirt-monitor/state.json" || fault "$1: the alarm is lost"
  [ "$(records "An alarm was raised" sleeper.running | wc -l)" = 1 ] || fault "$1: raised again"
  [ "$(times_told raised)" = 1 ] || fault "$1: told again"
}

step "the watchdog restarts a stopped monitor, and no alarm is lost or told again"
before=$(state_of MainPID)
inside kill -STOP "$before"
await "another process" runs_anew
[ "$(state_of NRestarts)" = 1 ] || fault "$(state_of NRestarts) restarts"
await "its first calls" status_is '^6 watches: .*1 alarm'
still_raised "after the watchdog"

step "an upgrade restarts the service, and no alarm is lost or told again"
before=$(state_of MainPID)
echo '# mine' >>"$root/etc/mirt-monitor/mirt-monitor.toml"
inside sh -c 'dpkg --install /packages/*_1.0.1_*.deb' >"$work/upgrade.log" 2>&1 || fault "$(cat "$work/upgrade.log")"
await "the service after the upgrade" runs_anew
await "its first calls" status_is '^6 watches: .*1 alarm'
still_raised "after the upgrade"
grep -q '^# mine' "$root/etc/mirt-monitor/mirt-monitor.toml" || fault "the configuration was replaced"
start_sleeper
await "the end of the alarm" has_record "An alarm was cleared" sleeper.running
[ "$(records "An alarm was cleared" sleeper.running | field MIRT_ALARM)" = "$alarm" ] ||
  fault "cleared under another id"

step "without root it says what it cannot see"
cp "$root/usr/share/doc/mirt-monitor/examples/without-root.conf" \
  "$root/etc/systemd/system/mirt-monitor.service.d/"
cat >"$root/etc/mirt-monitor/conf.d/bad.toml" <<'TOML'
[[process]]
name = "journald"
prefix = "/lib/systemd/systemd-journald"
running = true
handles = true
TOML
inside systemctl daemon-reload
inside systemctl restart mirt-monitor || fault "it does not start without root"
await "what it cannot see" has_record "The state of a watch has changed" journald.handles
[ "$(records "The state of a watch has changed" journald.handles | field MIRT_STATE)" = unjudged ] ||
  fault "open files that cannot be seen are not unjudged"
rm "$root/etc/systemd/system/mirt-monitor.service.d/without-root.conf"
inside systemctl daemon-reload

step "a stop ends within its timeout although an item is blocked for good"
cat >"$root/etc/mirt-monitor/conf.d/bad.toml" <<'TOML'
[[heartbeat]]
name = "blocked"
process = "writer"
module = 60001
deadline = "1s"
TOML
inside systemd-run --quiet --unit=holder flock /tmp/mirt_agent_lock sleep 88888
await "the holder of the lock" inside pgrep -fx 'sleep 88888'
inside systemctl restart mirt-monitor
await "the blocked call" has_record "A watch is blind" blocked
inside systemctl stop mirt-monitor
[ "$(state_of Result)" = success ] || fault "the stop ended with: $(state_of Result)"

step "removing keeps the state, purging removes it"
inside dpkg --remove mirt-monitor >/dev/null 2>&1
[ -e "$root/var/lib/mirt-monitor/state.json" ] || [ -e "$root/var/lib/private/mirt-monitor/state.json" ] ||
  fault "removing the package has removed the state"
rm "$root"/etc/mirt-monitor/conf.d/*
inside dpkg --purge mirt-monitor >/dev/null 2>&1
for left in /var/lib/mirt-monitor /var/lib/private/mirt-monitor /etc/mirt-monitor /run/mirt-monitor; do
  [ ! -e "$root$left" ] || fault "purging has left $left"
done
echo "the service works"
