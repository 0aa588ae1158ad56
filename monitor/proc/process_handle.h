// One process, even after its PID is reused.
#ifndef MONITOR_PROCESS_HANDLE_H
#define MONITOR_PROCESS_HANDLE_H

#include <sys/types.h>

#include <csignal>
#include <optional>
#include <string>
#include <tuple>

#include "proc/unique_fd.h"

// A PID together with the start time of its process, in clock ticks since the machine started.
struct ProcessIdentity {
  pid_t pid = 0;
  unsigned long long start_ticks = 0;

  friend bool operator<(const ProcessIdentity& a, const ProcessIdentity& b) {
    return std::tie(a.pid, a.start_ticks) < std::tie(b.pid, b.start_ticks);
  }
};

// The fields of /proc/PID/stat from the third on; empty if there is no such process or thread.
std::string stat_fields(pid_t pid);
// The field with this number, as in proc(5), of such text; empty if there is no such field.
std::string stat_field(const std::string& fields_from_third, int number);
// The start time of a process or thread; 0 if there is none.
unsigned long long start_ticks_of(pid_t pid);

// Holds a descriptor of a process, so that nothing reaches another process with the same PID.
class ProcessHandle {
 public:
  // Nothing, with errno set, if there is no such process or no free descriptor.
  static std::optional<ProcessHandle> open(pid_t pid);

  // False, with errno set: ESRCH if it has ended, EPERM if this user may not.
  bool signal(int number) const { return send(number, nullptr); }
  // The same with a value, like sigqueue().
  bool queue(int number, sigval value) const;

 private:
  explicit ProcessHandle(UniqueFd fd) : fd_(std::move(fd)) {}
  bool send(int number, siginfo_t* info) const;

  UniqueFd fd_;
};

// Sends a signal unless the process has ended, even if its PID is another process's now.
void signal_process(const ProcessIdentity& process, int number);

#endif
