# Completion of mirt-monitor for bash. Commands and options are those of --help.

# What a command offers: its options, or its commands.
_mirt_monitor_options() {
  mirt-monitor "$@" --help 2>/dev/null | grep -oE '^  (-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+'
}
_mirt_monitor_commands() {
  mirt-monitor "$@" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'
}
_mirt_monitor_items() {
  mirt-monitor items 2>/dev/null | sed -n 's/^\([A-Z][A-Za-z]*\).*/\1/p'
}
# Of the running monitor; nothing if none answers.
_mirt_monitor_watches() {
  mirt-monitor status --json 2>/dev/null | grep -oE '"name":"[^"]*","item"' | cut -d'"' -f4 |
    sort -u
}

_mirt_monitor() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]} words=
  COMPREPLY=()
  case $previous in
  --config | --plugin | --socket)
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
    return
    ;;
  --sort) words="pid rss cpu" ;;
  --group) words=$(compgen -g) ;;
  --for) words="30m 1h 2h 8h 1d" ;;
  --rounds | --every | --reason | --match) return ;;
  esac
  if [ -n "$words" ]; then
    :
  elif [ "$COMP_CWORD" -eq 1 ]; then
    words="$(_mirt_monitor_commands) --help --version"
  elif [[ $word == -* ]]; then
    words=$(_mirt_monitor_options "$command")
  else
    case $command:$COMP_CWORD in
    check-config:*)
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    once:2) words=$(_mirt_monitor_items) ;;
    silence:2 | unsilence:2 | status:2) words=$(_mirt_monitor_watches) ;;
    match:2 | find:2) words="exact prefix wildcard" ;;
    heartbeats:2) words=$(_mirt_monitor_commands heartbeats) ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -o filenames -F _mirt_monitor mirt-monitor
