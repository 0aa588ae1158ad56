// Which processes run, to find out whether a list of processes is complete.
#ifndef MONITOR_CENSUS_H
#define MONITOR_CENSUS_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

// Start time and short name of each process, by PID.
using Census = std::map<pid_t, std::pair<unsigned long long, std::string>>;

// All processes; nothing, with errno set, if /proc cannot be read to its end.
std::optional<Census> take_census();

// The processes that ran at both times under the same name.
std::set<pid_t> in_both(const Census& before, const Census& after);

#endif
