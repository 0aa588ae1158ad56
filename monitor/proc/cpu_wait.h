// How long a process has run, and how long it has waited for a processor.
#ifndef MONITOR_CPU_WAIT_H
#define MONITOR_CPU_WAIT_H

#include <cstdint>
#include <optional>

struct CpuWait {
  uint64_t run_ns = 0;
  uint64_t wait_ns = 0;   // ended waits only: one that still lasts is not in it
  bool runnable = false;  // a thread runs, or waits for a processor
};

// The sum over the first threads of the process, from /proc/<pid>/task/*/schedstat and stat.
// Nothing if there is no such process, or if this kernel does not count.
std::optional<CpuWait> cpu_wait_of(int pid);

#endif
