# Completion of mirt-monitor for fish. Commands and options are those of --help.

function __mirt_monitor_command
    set -l words (commandline -opc)
    test (count $words) -ge 2; and echo $words[2]
end

function __mirt_monitor_is
    test (count (commandline -opc)) -eq $argv[1]; and contains -- (__mirt_monitor_command) $argv[2..]
end

function __mirt_monitor_options
    mirt-monitor (__mirt_monitor_command) --help 2>/dev/null |
        string match -rg '^  (?:-[a-z],)?(--[a-z-]+)'
end

function __mirt_monitor_watches
    mirt-monitor status --json 2>/dev/null |
        string match -rag '"name":"([^"]*)","item"' | sort -u
end

complete -c mirt-monitor -n 'test (count (commandline -opc)) -eq 1' -f \
    -a "(mirt-monitor --help 2>/dev/null | string match -rg '^  ([a-z][a-z-]*  +.*)' | string replace -r '  +' \t)"
complete -c mirt-monitor -n 'string match -q -- "-*" (commandline -ct)' -a '(__mirt_monitor_options)'
complete -c mirt-monitor -n '__mirt_monitor_is 2 once' -f \
    -a "(mirt-monitor items 2>/dev/null | string match -rg '^([A-Z][A-Za-z]*)')"
complete -c mirt-monitor -n '__mirt_monitor_is 2 silence unsilence status' -f -a '(__mirt_monitor_watches)'
complete -c mirt-monitor -n '__mirt_monitor_is 2 match find' -f -a 'exact prefix wildcard'
complete -c mirt-monitor -n '__mirt_monitor_is 2 heartbeats' -f -a prepare
