// Runs a shell command and returns its exit status.
#ifndef MONITOR_SHELL_COMMAND_H
#define MONITOR_SHELL_COMMAND_H

#include <chrono>
#include <optional>
#include <string>

// Runs the command with /bin/sh and returns its exit status; as in shells, 128 plus the signal if a
// signal ended it. Nothing if it could not be started, or took longer than `limit` and was killed
// with all processes that it had started. Its standard input is /dev/null, and its output goes to
// standard error. It inherits no other descriptor.
std::optional<int> run_shell_command(const std::string& command, std::chrono::seconds limit);

#endif
