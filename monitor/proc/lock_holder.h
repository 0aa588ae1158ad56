// The process that holds a lock on a file.
#ifndef MONITOR_LOCK_HOLDER_H
#define MONITOR_LOCK_HOLDER_H

#include <sys/types.h>

#include <istream>
#include <optional>
#include <string>

struct LockHolder {
  int pid;
  std::string name;  // the kernel's short name; empty if the process has ended
};

// Returns the process that took the flock() lock on the file at `path`, from /proc/locks. A child
// that inherited the descriptor can keep the lock after that process has ended. Nothing if the lock
// is free, if the holder is outside this PID namespace, or if there is no such file. Never waits.
std::optional<LockHolder> holder_of_lock(const char* path);

// The same from the text of /proc/locks: the PID, or nothing. Ignores processes that wait for the
// lock, and fcntl() locks.
std::optional<int> holder_in(std::istream& locks, dev_t device, ino_t inode);

#endif
