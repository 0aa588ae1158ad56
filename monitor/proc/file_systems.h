// The file systems of this machine that can fill up.
#ifndef MONITOR_FILE_SYSTEMS_H
#define MONITOR_FILE_SYSTEMS_H

#include <string>
#include <vector>

// One folder for each: "/" first, then those that are on a device of this machine and can be
// written. Nothing of the network is touched, where an answer can take for ever.
std::vector<std::string> local_file_systems();

#endif
