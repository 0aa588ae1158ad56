// Notices the end of followed processes at once, not at the next call.
#ifndef MONITOR_END_WATCH_H
#define MONITOR_END_WATCH_H

#include <cstddef>
#include <list>
#include <string>
#include <vector>

#include "proc/process_end.h"
#include "proc/unique_fd.h"

struct Slot;

// Used by the scheduler's thread alone.
class EndWatch {
 public:
  // Each process needs a descriptor. The limit is this number or a quarter of the monitor's
  // descriptors; the ends of further processes are noticed at the next call.
  static constexpr size_t kMostProcesses = 512;

  struct Ended {
    int pid;
    std::string text;  // "process 77 was killed by signal 9 after 3 h"
    std::vector<Slot*> slots;
  };

  // The slot now follows this process, which existed at `seen`, instead of the previous one;
  // 0: no process, or one that is exiting, which is followed until its end. False if the process
  // has ended since.
  bool follow(Slot& slot, int pid, FollowedProcess::Steady::time_point seen);

  // The slot follows no process any more. To be called before the slot is destroyed.
  void leave(Slot& slot);

  // Becomes readable when a process ends; negative while there is none.
  int fd() const { return ends_.get(); }

  // Returns processes that have ended, and stops following them.
  std::vector<Ended> take_ended();

 private:
  struct Process {
    FollowedProcess process;
    std::vector<Slot*> slots;
  };

  using Processes = std::list<Process>;

  bool wait_for_end(Process& process);
  Processes::iterator find(int pid);
  Processes::iterator stop_following(Processes::iterator process);

  UniqueFd ends_{-1};  // an epoll of them: a look at the ends costs the same for any number
  Processes processes_;
};

#endif
