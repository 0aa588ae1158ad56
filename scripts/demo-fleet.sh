#!/usr/bin/env bash
# demo-fleet.sh [FOLDER]: twenty machines, each a network and PID namespace with a monitor, and the
# real Prometheus and Alertmanager with the files of fleet/. One watched process is killed, one
# monitor is stopped, one thread hangs. A local receiver must get exactly one notification for each
# of the three, with machine, watch and evidence. Takes about two minutes. FOLDER has the programs;
# without it they are built. Everything runs in namespaces of its own and ends with the script.
# Exit status 0: every step succeeded; 77: skipped, needs root and namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/setup.sh
help_if_asked "$@"
. scripts/demo-common.sh

machines=20

# The end of the first process ends all others, and with them their networks. "unshare" itself
# ignores SIGTERM while it waits for that process.
end_all() {
  local first
  first=$(ps --ppid "$outside" -o pid= | tr -d ' ')
  [ -n "$first" ] || return 0
  kill -KILL "$outside"
  wait "$outside" 2>/dev/null || true
  within 20 test ! -e "/proc/$first"
}

if [ "${1:-}" != --own-network ]; then
  own=(unshare --net --mount --pid --fork --kill-child --mount-proc)
  if ! reason=$([ "$(id -u)" -eq 0 ] && "${own[@]}" true 2>&1); then
    echo "Skipped: needs root, and network and PID namespaces ($reason)." >&2
    exit 77
  fi
  if [ $# -eq 0 ]; then
    install_missing "${build_packages[@]}" "${fleet_packages[@]}"
    build_in build -DMIRT_BUILD_TESTS=OFF -DMIRT_BUILD_BENCH=OFF
    set -- build/bin
  fi
  for tool in prometheus prometheus-alertmanager ip python3; do
    command -v "$tool" >/dev/null || {
      echo "Skipped: needs $tool." >&2
      exit 77
    }
  done
  work=$(mktemp -d)
  "${own[@]}" bash scripts/demo-fleet.sh --own-network "$(realpath "$1")" "$work" &
  outside=$!
  restore=(end_all)
  wait $outside
  exit
fi
programs=$2 folder=$3

# in_machine NUMBER COMMAND...: as a process of this machine.
in_machine() {
  local init
  init=$(ps --ppid "$(cat "$folder/$1/unshare")" -o pid= | tr -d ' ')
  shift
  nsenter --target "$init" --pid --mount -- "$@"
}

# start_machine NUMBER: the machine, its network, two watched services of which one runs, a monitor.
start_machine() {
  local number=$1 here=$folder/$1 address=10.97.0.$1
  mkdir "$here"
  cat >"$here/monitor.toml" <<EOF
every = "500 ms"
[[process]]
name = "database"
exact = "database infinity"
running = true
memory = true
[[process]]
name = "app"
prefix = "$programs/hung-thread"
hung = true
[machine]
memory = true
disk = { "/" = true }
[http]
listen = "$address:9757"
EOF
  cat >"$here/init" <<EOF
until ip address show eth0 2>/dev/null | grep -q $address; do sleep 0.05; done
(exec -a database sleep infinity) &
echo \$! >$here/database
"$programs/mirt-monitor" run --config $here/monitor.toml --allow-writable-config \
  >/dev/null 2>$here/log &
echo \$! >$here/monitor
wait
EOF
  unshare --net --mount --pid --fork --kill-child --mount-proc bash "$here/init" 2>"$here/errors" &
  echo $! >"$here/unshare"
  within 20 is_separate $!
  ip link add "machine-$number" type veth peer name eth0 netns $!
  ip link set "machine-$number" master fleet up
  nsenter --target $! --net ip address add "$address/16" dev eth0
  nsenter --target $! --net ip link set eth0 up
}
is_separate() { [ "$(readlink "/proc/$1/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }

# The shipped files; only addresses and times differ.
write_configuration() {
  mkdir -p "$folder/prometheus/rules" "$folder/prometheus/targets"
  sed -e 's/interval: 15s/interval: 3s/' fleet/prometheus.yml >"$folder/prometheus/prometheus.yml"
  sed -e 's/for: 1m$/for: 15s/' fleet/rules/mirt-alerts.yml >"$folder/prometheus/rules/alerts.yml"
  cp fleet/rules/mirt-records.yml "$folder/prometheus/rules/"
  cp fleet/targets/node.yml "$folder/prometheus/targets/"
  local number
  for ((number = 1; number <= machines; ++number)); do
    echo "- targets: ['10.97.0.$number:9757']"
    echo "  labels: {machine: machine-$number}"
  done >"$folder/prometheus/targets/mirt.yml"
  sed -e 's/group_wait: 30s/group_wait: 2s/' -e 's/group_interval: 5m/group_interval: 5s/' \
    fleet/alertmanager.yml >"$folder/alertmanager.yml"
}

# Keeps each notification as one line: path, status, labels and annotations.
receive() {
  cat >"$folder/receive.py" <<'EOF'
import http.server, json, sys

class Receiver(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        with open(sys.argv[1], "a") as file:
            file.write(json.dumps({"path": self.path} | body) + "\n")
        self.send_response(200)
        self.end_headers()
    def log_message(self, *_):
        pass

http.server.ThreadingHTTPServer(("127.0.0.1", 9095), Receiver).serve_forever()
EOF
  python3 "$folder/receive.py" "$folder/notifications" &
}

# value_of EXPRESSION: what Prometheus answers.
value_of() {
  python3 - "$1" <<'EOF' 2>/dev/null
import json, sys, urllib.parse, urllib.request
query = urllib.parse.urlencode({"query": sys.argv[1]})
answer = json.load(urllib.request.urlopen("http://127.0.0.1:9090/api/v1/query?" + query))
print(answer["data"]["result"][0]["value"][1])
EOF
}
has_value() { [ "$(value_of "$1")" = "$2" ]; }

# notified MACHINE CAUSE TEXT: one notification about it, with this text in it.
notified() {
  grep '"path": "/people"' "$folder/notifications" 2>/dev/null |
    grep "\"groupLabels\": {\"cause\": \"$2\", \"machine\": \"$1\"}" | grep -qE -- "$3"
}
is_alive() { grep -qs '"path": "/alive".*MirtDeadMansSwitch' "$folder/notifications"; }

print_notifications() {
  python3 - "$folder/notifications" <<'EOF'
import json, sys
for line in open(sys.argv[1]):
    message = json.loads(line)
    for alert in message["alerts"] if message["path"] == "/people" else []:
        labels, notes = alert["labels"], alert["annotations"]
        print("    %s: %s, %s, watch %s" % (message["status"], labels["machine"],
              notes["summary"], labels.get("watch", "-")))
        print("      evidence: %s %s" % (notes.get("condition", ""), notes["evidence"]))
EOF
}

echo "1. $machines machines, Prometheus and Alertmanager"
ip link set lo up
ip link add fleet type bridge
ip link set fleet up
ip address add 10.97.255.254/16 dev fleet
for ((number = 1; number <= machines; ++number)); do start_machine "$number"; done
write_configuration
receive
prometheus --config.file="$folder/prometheus/prometheus.yml" --web.listen-address=127.0.0.1:9090 \
  --rules.alert.resend-delay=5s --storage.tsdb.path="$folder/data" --log.level=warn \
  2>"$folder/prometheus.log" &
prometheus-alertmanager --config.file="$folder/alertmanager.yml" --cluster.listen-address= \
  --web.listen-address=127.0.0.1:9093 --storage.path="$folder/alertmanager" \
  --log.level=warn 2>"$folder/alertmanager.log" &
expect "all machines answer" within 120 has_value 'count(up{job="mirt"} == 1)' $machines
expect "their databases run" within 120 has_value 'sum(mirt_process_running)' $machines
# docs/fleet.md: 29, 16 for each of the 5 watches, 4 values, 2 PIDs, the outcome "absent" of a watch
# that has no process, 2 for each of two watches with alarms. A busy machine can have more outcomes.
expect "the number of series is as the formula says" \
  within 120 has_value 'min(scrape_samples_scraped{job="mirt"})' $((29 + 16 * 5 + 4 + 2 + 1 + 2 * 2))
expect "the dead man's switch arrives" within 120 is_alive

echo "2. A process is killed on machine 1, the monitor of machine 2 is stopped, a thread hangs on 3"
in_machine 1 kill -KILL "$(cat "$folder/1/database")"
in_machine 2 kill -STOP "$(cat "$folder/2/monitor")"
in_machine 3 "$programs/hung-thread" >"$folder/3/hung" &
expect "machine 1: the database was killed" within 120 \
  notified machine-1 database '"evidence": "process killed by signal 9|"evidence": "process ended'
expect "machine 3: the thread, and where it hangs" within 120 \
  notified machine-3 app '"evidence": "thread .*hung-thread.* in state D'
expect "machine 2: the monitor does not answer" within 120 \
  notified machine-2 monitor '"evidence": "10.97.0.2:9757, last answer'

echo "3. Nothing more comes"
sleep 15 # three times the interval after which Alertmanager would tell more
print_notifications
expect "exactly one notification for each cause" \
  test "$(grep -c '"path": "/people"' "$folder/notifications")" -eq 3
echo "Every step succeeded."
