// A shell command whose exit code is an answer.
#ifndef MONITOR_SHELL_COMMAND_H
#define MONITOR_SHELL_COMMAND_H

#include <chrono>
#include <optional>
#include <string>

// Runs the command by /bin/sh, waits for it, and gives its exit code: 128 and more if a signal
// ended it, as shells have it. Nothing if it could not be run, or took longer than `limit` and was
// killed with all that it had started. It inherits no descriptor but standard error, to which
// what it prints goes; it reads nothing.
std::optional<int> run_shell_command(const std::string& command, std::chrono::seconds limit);

#endif
