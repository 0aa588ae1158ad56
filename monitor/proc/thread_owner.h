// Finds the process of a thread.
#ifndef MONITOR_THREAD_OWNER_H
#define MONITOR_THREAD_OWNER_H

#include <optional>
#include <string>

struct ThreadOwner {
  int pid;
  std::string command_line;  // arguments joined by single spaces; "[name]" if there are none
};

// Nothing if the thread has ended. Waits while the kernel blocks reads of the files, possibly
// forever if a thread of the process hangs. Do not call it on the main thread.
std::optional<ThreadOwner> owner_of_thread(int tid);

#endif
