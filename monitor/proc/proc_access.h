// Whether /proc shows what items look for there: many of them answer "nothing there" when they
// cannot look.
#ifndef MONITOR_PROC_ACCESS_H
#define MONITOR_PROC_ACCESS_H

#include <string>

// Why the processes of this machine cannot be seen, or not all of them; empty if they can. Opens as
// much at one time as a walk over /proc does.
std::string proc_trouble();

// 0 if the file or folder can be opened to read, else the errno.
int open_error(const std::string& path);

// Why this file cannot be opened to read: "/proc/stat: Permission denied"; empty if it can.
std::string open_trouble(const std::string& path);

#endif
