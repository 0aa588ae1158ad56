// Finds and kills the descendants of a process.
#ifndef MONITOR_DESCENDANTS_H
#define MONITOR_DESCENDANTS_H

#include <sys/types.h>

#include <string>

// Kills every descendant of this process and waits at most one second. For the end of the program,
// which does not wait for items that wait for a command: the command would continue without a time
// limit. A process whose parent has ended (a daemon, or a background process of a shell) is not
// found and continues by design.
void kill_descendants();

// Kills all processes of a command: the process `shell`, its descendants, and every process whose
// environment contains `mark` ("NAME=VALUE"), which finds processes whose parent has ended. `shell`
// must be a child that has not been reaped. If memory is short, some processes may remain.
void kill_command(pid_t shell, const std::string& mark) noexcept;

#endif
