#!/usr/bin/env bash
# make.sh FOLDER VERSION: makes the manual pages from docs/, with pandoc. Each page consists of parts
# of docs/, so no text exists twice.
set -euo pipefail
folder=$1
version=$2
cd "$(dirname "$0")/../.."

# part FILE HEADING...: prints these sections of the file, with their headings. Without a HEADING:
# prints the text before the first section, except the title.
part() {
  local file=$1
  shift
  awk -v wanted="$(printf '%s\n' "$@")" '
    BEGIN { count = split(wanted, names, "\n"); for (i in names) is_wanted["## " names[i]] = 1
            keep = wanted == "" }
    /^```/ { in_code = !in_code }
    !in_code && /^# / { next }
    !in_code && /^## / { keep = $0 in is_wanted }
    keep' "$file"
}

# page NAME SECTION [PANDOC-ARGUMENT...]: makes a page from standard input.
page() {
  local name=$1 section=$2
  shift 2
  mkdir -p "$folder/man$section"
  pandoc --standalone --from=gfm --to=man --lua-filter=packaging/man/man.lua \
    -M title="${name^^}" -M section="$section" -M footer="mirt-monitor $version" \
    -M date="" "$@" --output="$folder/man$section/$name.$section"
}

# shellcheck disable=SC2016 # they are backquotes of the manual
commands=$(sed -n 's/^| \[`\(.*\)`\].*/\1/p' docs/commands.md)
pages=$(while read -r command; do echo "mirt-monitor-${command// /-}(1)"; done <<<"$commands")
configuration="mirt-monitor.toml(5)"

{
  part docs/commands.md
  part docs/commands.md "Common options" "Exit status" "Environment"
} | page mirt-monitor 1 -M command=yes \
  -M see="$configuration, mirt_items(3), ${pages//$'\n'/, }"

while read -r command; do
  part docs/commands.md "$command" | sed 1d | {
    # The meaning of the output belongs to the command that writes it.
    cat
    [ "$command" != run ] || part docs/monitor.md "Output"
  } | page "mirt-monitor-${command// /-}" 1 -M command=yes -M see="mirt-monitor(1), $configuration"
done <<<"$commands"

part docs/monitor.md "Configuration" "Calls" "States" "Alarms" "Alerts" "Silences" \
  "State over restarts" "Recovery" |
  page mirt-monitor.toml 5 -M summary="configuration of mirt-monitor" -M see="mirt-monitor(1), mirt_items(3)"

{
  part docs/items.md
  sed -n '/^## /,$p' docs/items.md
} | page mirt_items 3 -M summary="inspection items for Linux" -M see="mirt-monitor(1), $configuration"
