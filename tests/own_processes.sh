#!/usr/bin/env bash
# own_processes.sh PROGRAM [ARGUMENT...]: runs a test program in a PID namespace with a /proc of its
# own. Walks over /proc then take the same time on every machine, and no other process can match a
# test's pattern. Whatever the program leaves running ends with it. Returns the program's exit
# status.
# Without the right to do so, the program runs among the machine's processes, and a line says so.
set -euo pipefail
namespace=(unshare --mount --pid --fork --kill-child --mount-proc)
[ "$(id -u)" -eq 0 ] || namespace+=(--map-root-user)

if ! reason=$("${namespace[@]}" true 2>&1); then
  echo "No PID namespace for the tests ($reason): they run among all processes." >&2
  exec "$@"
fi
# The shell remains as PID 1. The kernel ignores most signals to PID 1, abort()'s too, so the program
# must not be it.
# shellcheck disable=SC2016
exec "${namespace[@]}" bash -c '"$@"; exit $?' own_processes.sh "$@"
