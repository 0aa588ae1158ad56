// Keeps the resident memory of a program with many threads small.
#ifndef MONITOR_RESIDENT_MEMORY_H
#define MONITOR_RESIDENT_MEMORY_H

// All threads allocate from one heap. By default the C library makes up to eight heaps for each
// processor, and each of them keeps what its threads have freed. Call this before threads start.
void use_one_heap();

// Returns memory to the system that only a start or a reload needed: what the heap has freed, and
// the pages of the program and its libraries that are never written. The kernel loads a page again
// when it is used.
void return_unused_memory();

#endif
