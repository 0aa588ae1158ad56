// Where a thread of this process waits in the kernel.
#ifndef MONITOR_WAIT_PLACE_H
#define MONITOR_WAIT_PLACE_H

#include <optional>
#include <string>

struct WaitPlace {
  std::string call;        // "read"
  std::string path;        // the file it waits for; empty if it cannot be told
  std::optional<int> pid;  // the process whose file under /proc that is

  // "in read of /proc/77/cmdline (process 77, "name")"
  std::string text() const;
};

// What the thread is waiting in, from /proc/self/task/<tid>/syscall; nothing if it runs, or if that
// cannot be told.
std::optional<WaitPlace> wait_place_of(int tid);

#endif
