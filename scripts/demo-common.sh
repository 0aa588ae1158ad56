#!/usr/bin/env bash
# Common functions of the demonstrations, which source this file in the repository's directory. They
# add background processes to `children` and write files only to the directory `work`.
set -euo pipefail

children=()
work=""
restore=() # a command that restores a changed setting

finish() {
  if [ ${#children[@]} -gt 0 ]; then
    kill -CONT "${children[@]}" 2>/dev/null || true # a stopped process ignores SIGTERM
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

# expect WHAT COMMAND...: prints whether COMMAND succeeded; if not, ends the demonstration.
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

# within SECONDS COMMAND...: retries COMMAND until it succeeds.
within() {
  local tries=$(($1 * 10))
  shift
  until "$@"; do
    ((tries-- > 0)) || return 1
    sleep 0.1
  done
}
