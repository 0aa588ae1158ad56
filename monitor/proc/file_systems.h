// The file systems of this machine that can fill up.
#ifndef MONITOR_FILE_SYSTEMS_H
#define MONITOR_FILE_SYSTEMS_H

#include <string>
#include <vector>

struct FileSystems {
  std::vector<std::string> folders;   // one for each file system
  std::vector<std::string> left_out;  // what could not be read, each with the reason
};

// "/" first, then the writable file systems on devices of this machine, as /proc/self/mounts has
// them. Network file systems are not touched, because they may never answer.
FileSystems local_file_systems();

#endif
