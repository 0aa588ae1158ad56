// The status file of a process or thread.
#ifndef MONITOR_PROC_STATUS_H
#define MONITOR_PROC_STATUS_H

#include <optional>
#include <string>

// "Tgid:\t1234" -> "1234": what stands behind the key in /proc/<id>/status; nothing if there is no
// such line, or no such process or thread.
std::optional<std::string> status_value(int id, const std::string& key);

#endif
