// The process that a thread belongs to.
#ifndef MONITOR_THREAD_OWNER_H
#define MONITOR_THREAD_OWNER_H

#include <optional>
#include <string>

struct ThreadOwner {
  int pid;
  std::string command_line;  // arguments with single blanks between; "[name]" where there are none
};

// Nothing if the thread has gone. Waits for as long as the kernel keeps the files from being read,
// which can be for good where a thread of the process hangs: not for the main thread.
std::optional<ThreadOwner> owner_of_thread(int tid);

#endif
