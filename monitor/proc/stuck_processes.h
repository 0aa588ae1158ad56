// Processes whose files under /proc block reads; searches skip them for that time.
#ifndef MONITOR_STUCK_PROCESSES_H
#define MONITOR_STUCK_PROCESSES_H

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

struct StuckProcess {
  int pid;
  std::string place;  // "in read of /proc/77/cmdline (process 77, "name")"
  std::chrono::system_clock::time_point since;
};

// Written by the scheduler, read on any thread.
class StuckProcesses {
 public:
  void set(std::vector<StuckProcess> processes);

  // "a call has waited in read of /proc/77/cmdline (...) since 12:00:00", or empty.
  std::string text() const;

 private:
  mutable std::mutex mutex_;
  std::vector<StuckProcess> processes_;
};

#endif
