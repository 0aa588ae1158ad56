#!/usr/bin/env bash
# What the demonstrations share. Sourced by them, in the repository's folder; whatever they start in
# the background goes into `children`, whatever they write into the folder `work`.
set -euo pipefail

children=()
work=""
restore=() # a command, if something has to be set back

finish() {
  if [ ${#children[@]} -gt 0 ]; then
    kill -CONT "${children[@]}" 2>/dev/null || true # a stopped process does not end
    kill "${children[@]}" 2>/dev/null || true
    wait "${children[@]}" 2>/dev/null || true
  fi
  children=()
  [ ${#restore[@]} -eq 0 ] || "${restore[@]}" || true
  restore=()
  [ -z "$work" ] || rm -rf "$work"
}
trap finish EXIT
trap 'exit 1' INT TERM

# expect WHAT COMMAND...: tells whether it was seen, and ends the demonstration if it was not.
expect() {
  local what=$1
  shift
  if "$@"; then
    echo "  ok: $what"
  else
    echo "  NOT SEEN: $what" >&2
    exit 1
  fi
}

# within SECONDS COMMAND...: tries again and again.
within() {
  local tries=$(($1 * 10))
  shift
  until "$@"; do
    ((tries-- > 0)) || return 1
    sleep 0.1
  done
}
