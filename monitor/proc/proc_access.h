// Checks whether /proc is readable, because many items report "no process" if it is not.
#ifndef MONITOR_PROC_ACCESS_H
#define MONITOR_PROC_ACCESS_H

#include <string>

// Why not all processes of this machine are visible; empty if they are. Opens as many files at the
// same time as a search of /proc does.
std::string proc_trouble();

// The same, for the many calls that begin at one time: an answer "none" is valid for 20 ms.
std::string recent_proc_trouble();

// True if this process runs as root and may read the open files of every process, also those of
// process 1. An answer "true" is valid for 20 ms.
bool may_read_all_files();

// 0 if the file or directory can be opened for reading, else the errno.
int open_error(const std::string& path);

// Why this file cannot be opened for reading: "/proc/stat: Permission denied"; empty if it can.
std::string open_trouble(const std::string& path);

#endif
