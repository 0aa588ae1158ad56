// Finds the system call in which a thread of this process waits.
#ifndef MONITOR_WAIT_PLACE_H
#define MONITOR_WAIT_PLACE_H

#include <optional>
#include <string>

struct WaitPlace {
  std::string call;        // "read"
  std::string path;        // the file it waits for; empty if unknown
  std::optional<int> pid;  // the process, if the file is in its /proc directory

  // "in read of /proc/77/cmdline (process 77, "name")"
  std::string text() const;
};

// From /proc/self/task/<tid>/syscall; nothing if the thread is running or the file cannot be read.
std::optional<WaitPlace> wait_place_of(int tid);

#endif
