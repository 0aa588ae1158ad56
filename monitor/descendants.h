// What this process has started, at its end.
#ifndef MONITOR_DESCENDANTS_H
#define MONITOR_DESCENDANTS_H

// Kills every process that descends from this one. For the end of the program, which does not wait
// for items that wait for a command: the command would go on without a time limit. One that has cut
// itself loose (setsid and a second fork, as daemons do) is not found, and is meant to stay.
void kill_descendants();

#endif
