// The heartbeats' lock file and table, made before anybody else can.
#ifndef MONITOR_HEARTBEAT_FILES_H
#define MONITOR_HEARTBEAT_FILES_H

#include <sys/types.h>

#include <string>
#include <vector>

constexpr char kHeartbeatTableFile[] = "/dev/shm/MIRT_AGENT_HEARTBEAT";

// Makes both files if they are not there, and gives them to root and the group, which may read and
// write them. What is there already stays as it is but for owner, group and mode; a table whose
// maker died over it is made anew. Needs root.
//
// Returns what stands against it, one text each, and has not changed the file that the text names:
// another type, another owner than root and "daemon", a second name (hard link), another size, a
// damaged table, or a process that holds the lock for more than five seconds.
std::vector<std::string> prepare_heartbeat_files(gid_t group);

#endif
