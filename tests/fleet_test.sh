#!/usr/bin/env bash
# fleet_test.sh FOLDER: the files for Prometheus and Alertmanager are valid, and the rules do what
# their tests say.
set -euo pipefail
cd "$1"
for tool in promtool amtool; do
  command -v "$tool" >/dev/null || {
    echo "needs $tool"
    exit 77
  }
done
promtool check config prometheus.yml
promtool check rules rules/*.yml
promtool test rules tests/*.yml
amtool check-config alertmanager.yml
# Who is told of what.
[ "$(amtool config routes test --config.file=alertmanager.yml alertname=MirtAlarm)" = people ]
[ "$(amtool config routes test --config.file=alertmanager.yml alertname=MirtDeadMansSwitch)" = \
  dead-mans-switch ]
