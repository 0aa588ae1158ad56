// Watches a process until it ends, and tells how it ended.
#ifndef MONITOR_PROCESS_END_H
#define MONITOR_PROCESS_END_H

#include <chrono>
#include <optional>

#include "proc/unique_fd.h"

struct ProcessEnd {
  std::optional<int> status;      // the wait status; nothing if the kernel does not tell it
  std::chrono::milliseconds ran;  // from its start until its end was noticed
};

// Holds a descriptor of one process, so that a reused PID is never mistaken for it. Needs no rights
// over the process, which need not be a child.
class FollowedProcess {
 public:
  using Steady = std::chrono::steady_clock;

  // The process that had this PID at `seen`. Nothing, with errno set, if it has ended, whether or
  // not another process has its PID now (ESRCH), if the number is that of a thread (EINVAL or
  // ESRCH), or if there is no free descriptor (EMFILE, ENFILE).
  static std::optional<FollowedProcess> follow(int pid, Steady::time_point seen);

  int pid() const { return pid_; }
  // When it started, accurate to 1/100 s.
  std::chrono::system_clock::time_point started() const;

  // Becomes readable when the process ends.
  int fd() const { return fd_.get(); }

  // True as soon as it has begun to exit. Its command line is empty from then on, but to free much
  // memory takes time, and its end is noticed only after that.
  bool is_exiting() const;

  // How it ended; nothing while it runs. Linux 6.15 and later tell the status of any process. Older
  // ones tell it only while the parent has not waited for the process, and only to a user who may
  // inspect it. If the status is not known yet, a later call may return it.
  std::optional<ProcessEnd> end() const;

 private:
  FollowedProcess(int pid, UniqueFd fd, unsigned long long start_ticks)
      : pid_(pid), fd_(std::move(fd)), start_ticks_(start_ticks) {}

  std::optional<int> exit_status() const;
  std::optional<int> status_of_zombie() const;

  int pid_;
  UniqueFd fd_;
  unsigned long long start_ticks_;  // clock ticks since the machine started
};

#endif
