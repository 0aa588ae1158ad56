// A process that is followed until it ends, and how it ended.
#ifndef MONITOR_PROCESS_END_H
#define MONITOR_PROCESS_END_H

#include <chrono>
#include <optional>

#include "proc/unique_fd.h"

struct ProcessEnd {
  std::optional<int> status;      // as wait() gives it; nothing where the kernel does not tell
  std::chrono::milliseconds ran;  // from its start until the end was seen
};

// Holds a descriptor of one process, whatever becomes of its number. No rights over the process are
// needed, and it need not be a child.
class FollowedProcess {
 public:
  using Steady = std::chrono::steady_clock;

  // The process that has this number and had it at `seen`. Nothing, with errno set, if there is
  // none (ESRCH; it may have ended, and the number may be that of another one since), if the number
  // is that of a thread (EINVAL), or if no descriptor was left (EMFILE, ENFILE).
  static std::optional<FollowedProcess> follow(int pid, Steady::time_point seen);

  int pid() const { return pid_; }
  // When it began. The kernel tells it to a hundredth of a second.
  std::chrono::system_clock::time_point started() const;

  // Readable from the end of the process on.
  int fd() const { return fd_.get(); }

  // How it ended; nothing as long as it runs. Linux 6.15 and later tell the status of any process.
  // Before that it is known only for processes that their parent has not waited for yet, and only
  // with the right to look into them. Ask again later for a status that is not known yet.
  std::optional<ProcessEnd> end() const;

 private:
  FollowedProcess(int pid, UniqueFd fd, unsigned long long start_ticks)
      : pid_(pid), fd_(std::move(fd)), start_ticks_(start_ticks) {}

  std::optional<int> exit_status() const;
  std::optional<int> status_of_zombie() const;

  int pid_;
  UniqueFd fd_;
  unsigned long long start_ticks_;  // since the machine started, in the kernel's clock ticks
};

#endif
