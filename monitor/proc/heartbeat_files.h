// Creates the lock file and table of the heartbeats in advance.
#ifndef MONITOR_HEARTBEAT_FILES_H
#define MONITOR_HEARTBEAT_FILES_H

#include <sys/types.h>

#include <string>
#include <vector>

constexpr char kHeartbeatTableFile[] = "/dev/shm/MIRT_AGENT_HEARTBEAT";

// Creates both files if they do not exist, and sets owner root, the group and mode 0660. The
// content of existing files is unchanged, except that an unfinished table is initialised again.
// Needs root.
//
// Returns one text for each problem: a wrong file type, an owner other than root and "daemon", a
// second hard link, a wrong size, a damaged table, or a process that holds the lock for more than 5
// seconds. The file in the text is unchanged.
std::vector<std::string> prepare_heartbeat_files(gid_t group);

#endif
