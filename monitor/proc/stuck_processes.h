// Processes whose files under /proc block reads; searches skip them for that time.
#ifndef MONITOR_STUCK_PROCESSES_H
#define MONITOR_STUCK_PROCESSES_H

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

struct StuckProcess {
  using Clock = std::chrono::steady_clock;

  int pid;
  std::string place;  // "in read of /proc/77/cmdline (process 77, "name")"
  std::chrono::system_clock::time_point since;
  Clock::time_point seen;  // when a read was last seen to wait
};

// Written by the scheduler, read on any thread.
class StuckProcesses {
 public:
  // Adds the process, or notes that it is still stuck.
  void note(StuckProcess process);

  // "a call has waited in read of /proc/77/cmdline (...) since 12:00:00", if a read has been seen
  // to wait since then, else empty.
  std::string text(StuckProcess::Clock::time_point seen_since) const;

 private:
  mutable std::mutex mutex_;
  std::vector<StuckProcess> processes_;  // the most recent at the end
};

#endif
