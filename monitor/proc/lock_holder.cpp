#include "proc/lock_holder.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <sstream>

#include "proc/proc_file.h"

std::optional<int> holder_in(std::istream& locks, dev_t device, ino_t inode) {
  // "3: FLOCK  ADVISORY  WRITE 4711 fd:01:131090 0 EOF": the PID, the device numbers in
  // hexadecimal, the inode in decimal. A waiting process has "->" before FLOCK.
  for (std::string line; std::getline(locks, line);) {
    int pid = 0;
    unsigned major_number = 0, minor_number = 0;
    unsigned long number = 0;
    if (std::sscanf(line.c_str(), "%*d: FLOCK %*s %*s %d %x:%x:%lu", &pid, &major_number,
                    &minor_number, &number) == 4 &&
        pid > 0 && makedev(major_number, minor_number) == device && number == inode) {
      return pid;
    }
  }
  return std::nullopt;
}

std::optional<LockHolder> holder_of_lock(const char* path) {
  struct stat file {};
  if (stat(path, &file) != 0) return std::nullopt;
  std::istringstream locks(read_proc_file("/proc/locks", size_t{4} << 20).value_or(""));
  const std::optional<int> pid = holder_in(locks, file.st_dev, file.st_ino);
  if (!pid) return std::nullopt;
  return LockHolder{*pid, name_of_process(*pid)};
}
