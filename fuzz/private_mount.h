// Mounts that only this process sees.
#ifndef FUZZ_PRIVATE_MOUNT_H
#define FUZZ_PRIVATE_MOUNT_H

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

#include "fuzz_input.h"

inline void write_text(const std::string& path, const std::string& text) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return;  // a name that the file system refuses, or a folder
  FUZZ_CHECK(write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  close(file);
}

// Enters a mount namespace of its own. Without the right to do so the program ends with status 77,
// which the tests count as skipped.
inline bool enter_private_mounts() {
  const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
  if (unshare(CLONE_NEWNS) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) _exit(77);
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", "0 " + user + " 1");
    write_text("/proc/self/gid_map", "0 " + group + " 1");
  }
  FUZZ_CHECK(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
  return true;
}

inline void mount_empty(const char* path) {
  FUZZ_CHECK(mount("tmpfs", path, "tmpfs", 0, "size=16m,mode=1777") == 0);
}

#endif
