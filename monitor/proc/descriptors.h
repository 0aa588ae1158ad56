// Limits of open files.
#ifndef MONITOR_DESCRIPTORS_H
#define MONITOR_DESCRIPTORS_H

#include <cstddef>

// The limit of open files (RLIMIT_NOFILE).
size_t descriptor_limit();

// The number of descriptors that are free now.
size_t free_descriptors();

#endif
