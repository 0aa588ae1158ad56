// Ends of followed processes, seen at once and not at the next beat.
#ifndef MONITOR_END_WATCH_H
#define MONITOR_END_WATCH_H

#include <poll.h>

#include <cstddef>
#include <list>
#include <string>
#include <vector>

#include "proc/process_end.h"

struct Slot;

// Used by the scheduler's thread alone.
class EndWatch {
 public:
  // One descriptor a process. Beyond this many, and beyond a quarter of those that the monitor may
  // have, an end is seen at the next beat.
  static constexpr size_t kMostProcesses = 512;

  struct Ended {
    int pid;
    std::string text;  // "process 77 was killed by signal 9 after 3 h"
    std::vector<Slot*> slots;
  };

  // From now on the slot follows this process, which was there at `seen`, instead of the one
  // before; 0: none. False if it has ended since.
  bool follow(Slot& slot, int pid, FollowedProcess::Steady::time_point seen);

  void add_to(std::vector<pollfd>& fds) const;

  // The processes that have ended since the last time. Nobody follows them any more.
  std::vector<Ended> take_ended();

 private:
  struct Process {
    FollowedProcess process;
    std::vector<Slot*> slots;
  };

  void leave(Slot& slot);

  std::list<Process> processes_;
};

#endif
