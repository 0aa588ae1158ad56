// How long the threads of a process have waited for a processor.
#ifndef MONITOR_CPU_WAIT_H
#define MONITOR_CPU_WAIT_H

#include <chrono>
#include <vector>

struct ThreadTimes {
  int tid;
  std::chrono::nanoseconds ran;
  std::chrono::nanoseconds waited;  // ended waits only: one that still lasts is not in it
};

// Of the first threads of the process, from /proc/<pid>/task/<tid>/schedstat. Empty if there is no
// such process, or if this kernel does not count.
std::vector<ThreadTimes> thread_times_of(int pid);

// Those of the threads that are ready to run, and have got nothing since `earlier`. That has to lie
// a few ticks back: the kernel counts a thread that runs no sooner.
std::vector<int> still_waiting(int pid, const std::vector<ThreadTimes>& earlier);

// The longest that one thread has waited between two looks that lie `elapsed` apart. One that waits
// still may have waited for all the time in which it did not run.
std::chrono::nanoseconds longest_wait(const std::vector<ThreadTimes>& before,
                                      const std::vector<ThreadTimes>& now,
                                      const std::vector<int>& waiting,
                                      std::chrono::nanoseconds elapsed);

#endif
