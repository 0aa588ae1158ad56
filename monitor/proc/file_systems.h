// The file systems of this machine that can fill up.
#ifndef MONITOR_FILE_SYSTEMS_H
#define MONITOR_FILE_SYSTEMS_H

#include <string>
#include <vector>

// One folder for each: "/" first, then the writable file systems on devices of this machine.
// Network file systems are not touched, because they may never answer.
std::vector<std::string> local_file_systems();

#endif
