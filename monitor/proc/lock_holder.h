// The process that holds a lock on a file.
#ifndef MONITOR_LOCK_HOLDER_H
#define MONITOR_LOCK_HOLDER_H

#include <sys/types.h>

#include <istream>
#include <optional>
#include <string>

struct LockHolder {
  int pid;
  std::string name;  // the kernel's short name; empty where the process has gone
};

// Who holds the lock that flock() takes on the file at `path`, by /proc/locks. It is the process
// that took the lock: a child that inherited the descriptor can keep it beyond that one's end.
// Nothing if nobody holds it, if the holder lies outside this PID namespace, or if the file is not
// there. Never waits: neither for the lock nor for the holder.
std::optional<LockHolder> holder_of_lock(const char* path);

// The same from the text of /proc/locks: the PID, or nothing. Those that wait for the lock, and the
// locks that fcntl() takes, do not count.
std::optional<int> holder_in(std::istream& locks, dev_t device, ino_t inode);

#endif
