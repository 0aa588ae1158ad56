// What this process itself uses.
#ifndef MONITOR_OWN_PROCESS_H
#define MONITOR_OWN_PROCESS_H

#include <cstddef>
#include <string>

struct OwnProcess {
  double cpu_s = 0.0;
  size_t resident_bytes = 0, virtual_bytes = 0;
  size_t threads = 0;
  size_t open_files = 0, most_files = 0;  // descriptors, and their limit
};

// From /proc/self and the limits of the process. What cannot be read is 0.
OwnProcess own_process();

// The name of this machine; empty if it has none.
std::string host_name();

#endif
