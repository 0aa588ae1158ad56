// Measures how long the threads of a process have waited for a processor.
#ifndef MONITOR_CPU_WAIT_H
#define MONITOR_CPU_WAIT_H

#include <chrono>
#include <vector>

struct ThreadTimes {
  int tid;
  std::chrono::nanoseconds ran;
  std::chrono::nanoseconds waited;  // completed waits only, without a current one
};

// The times of the first threads of the process, from /proc/<pid>/task/<tid>/schedstat. Empty if
// there is no such process, or if the kernel does not provide these counts.
std::vector<ThreadTimes> thread_times_of(int pid);

// The threads that are ready to run but have not run since `earlier`, which must be a few ticks
// ago, because the kernel updates the run time only at ticks.
std::vector<int> still_waiting(int pid, const std::vector<ThreadTimes>& earlier);

// The longest wait of one thread between two readings `elapsed` apart. For a thread that still
// waits, all the time in which it did not run counts.
std::chrono::nanoseconds longest_wait(const std::vector<ThreadTimes>& before,
                                      const std::vector<ThreadTimes>& now,
                                      const std::vector<int>& waiting,
                                      std::chrono::nanoseconds elapsed);

#endif
