// How many files this process may open.
#ifndef MONITOR_DESCRIPTORS_H
#define MONITOR_DESCRIPTORS_H

#include <cstddef>

// The limit of open files (RLIMIT_NOFILE).
size_t descriptor_limit();

// How many more can be opened now.
size_t free_descriptors();

#endif
