#!/usr/bin/env bash
# service_files_test.sh MONITOR SOURCE: what the package brings beside the program is right: the rights
# of the service, the manual pages, the explanations for the journal, the completions.
# Exit status 77: a tool that this needs is missing.
set -euo pipefail
monitor=$1
cd "$2"
for tool in systemd-analyze pandoc man; do
  command -v $tool >/dev/null || exit 77
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
fault() {
  echo "$1" >&2
  failed=1
}

# As few rights as it was designed with.
systemd-analyze security --offline=true --threshold=30 packaging/debian/mirt-monitor.service \
  >"$work/rights" || fault "the service has too many rights: $(tail -1 "$work/rights")"

# Each page is made without a complaint of man, and has a name that whatis finds.
packaging/man/make.sh "$work/man" 1.0 || fault "the manual pages cannot be made"
for page in "$work"/man/*/*; do
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 "$page" 2>&1 >/dev/null)
  [ -z "$warnings" ] || fault "${page##*/}: $warnings"
  lexgrog "$page" >/dev/null || fault "${page##*/} has no name and meaning"
done

# commands.md has every command and every option that --help has, and no others.
options_in() { grep -oE '(^|[ `])--[a-z][a-z-]*' | tr -d ' `' | sort -u; }
help_of() { # shellcheck disable=SC2086 # the words of a command
  "$monitor" $1 --help
}
subcommands_of() { help_of "$1" | sed -n "/^Subcommands:/,/^\$/s/^  \([a-z][a-z-]*\) .*/${1:+$1 }\1/p"; }
commands=$(
  subcommands_of "" | while read -r command; do
    echo "$command"
    subcommands_of "$command"
  done | sort
)
described=$(sed -n 's/^## \([a-z].*\)/\1/p' docs/commands.md | sort)
[ "$commands" = "$described" ] ||
  fault "commands and sections of commands.md differ: $(diff <(echo "$commands") <(echo "$described"))"
while read -r command; do
  offered=$(help_of "$command" | sed -n '/^Options:/,/^$/p' | sed 's/-h,--help.*//' |
    sed -n 's/^  \(--[a-z-]*\).*/\1/p' | options_in || true)
  described=$(awk -v name="## $command" '/^## / { keep = $0 == name } keep' docs/commands.md |
    sed -n 's/^| `\(--[a-z-]*\).*/\1/p' | options_in || true)
  [ "$offered" = "$described" ] ||
    fault "options of $command differ: $(diff <(echo "$offered") <(echo "$described"))"
done <<<"$commands"

# Each kind of record has its explanation.
diff <(sed -n 's/.*Id\[\] = "\(.*\)".*/\1/p' monitor/service/journal.cpp | sort) \
  <(sed -n 's/^-- //p' packaging/mirt-monitor.catalog | sort) || fault "the catalogue is not complete"
mkdir -p "$work/root/usr/lib/systemd/catalog" "$work/root/var/lib/systemd/catalog"
cp packaging/mirt-monitor.catalog "$work/root/usr/lib/systemd/catalog/"
journalctl --root="$work/root" --update-catalog || fault "the catalogue is not valid"

# Completions offer commands, options and items.
complete_with() { # complete_with WORD...: what bash offers for the last word
  PATH=$(dirname "$monitor"):$PATH bash -c '
    . packaging/completions/mirt-monitor.bash
    COMP_WORDS=(mirt-monitor "$@") COMP_CWORD=$#
    _mirt_monitor
    echo "${COMPREPLY[@]}"' bash "$@"
}
[ "$(complete_with chec)" = check-config ] || fault "bash does not complete a command"
[ "$(complete_with check-config --exp)" = --expand ] || fault "bash does not complete an option"
[ "$(complete_with once GetDisk)" = GetDiskUsage ] || fault "bash does not complete an item"
[ -z "$(complete_with silence x)" ] || fault "bash offers a watch although no monitor runs"
if command -v fish >/dev/null; then
  offered=$(PATH=$(dirname "$monitor"):$PATH HOME=$work fish --no-config -c \
    'source packaging/completions/mirt-monitor.fish; complete -C "mirt-monitor once GetDisk"')
  [ "$offered" = GetDiskUsage ] || fault "fish does not complete an item: $offered"
fi
! command -v zsh >/dev/null || zsh -n packaging/completions/_mirt-monitor || fault "zsh: not valid"
exit $failed
