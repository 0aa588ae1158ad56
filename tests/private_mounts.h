// Files, and mounts that only this process and its children see.
#ifndef PRIVATE_MOUNTS_H
#define PRIVATE_MOUNTS_H

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

// A name that the file system refuses is passed over.
inline void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

// Enters a mount namespace of its own. False if it needs root or user namespaces.
inline bool enter_private_mounts() {
  const std::string user = std::to_string(geteuid()), group = std::to_string(getegid());
  if (unshare(CLONE_NEWNS) != 0) {
    // Mounts need root, so become root of a user namespace.
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + user + " 1");
    write_file("/proc/self/gid_map", "0 " + group + " 1");
  }
  return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

#endif
