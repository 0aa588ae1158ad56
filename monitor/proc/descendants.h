// What descends from a process, and how to be rid of it.
#ifndef MONITOR_DESCENDANTS_H
#define MONITOR_DESCENDANTS_H

#include <sys/types.h>

#include <string>

// Kills every process that descends from this one, and looks after them for a second at most. For
// the end of the program, which does not wait for items that wait for a command: the command would
// go on without a time limit. One whose parent ended before (a daemon, or what a shell has left in
// the background) is not found, and is meant to stay.
void kill_descendants();

// Kills all that a command has started: the process `shell`, what descends from it, and every
// process whose environment holds `mark` ("NAME=VALUE"), which is how those are found whose parent
// has ended. `shell` must be a child that has not been waited for. Out of memory, some may be left.
void kill_command(pid_t shell, const std::string& mark) noexcept;

#endif
