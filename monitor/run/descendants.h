// What descends from this process, at its end.
#ifndef MONITOR_DESCENDANTS_H
#define MONITOR_DESCENDANTS_H

// Kills every process that descends from this one, and looks after them for a second at most. For
// the end of the program, which does not wait for items that wait for a command: the command would
// go on without a time limit. One whose parent ended before (a daemon, or what a shell has left in
// the background) is not found, and is meant to stay.
void kill_descendants();

#endif
