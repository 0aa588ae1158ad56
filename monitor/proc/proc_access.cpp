#include "proc/proc_access.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "proc/unique_fd.h"

int open_error(const std::string& path) {
  const UniqueFd file = open_to_read(path.c_str());
  return file.get() >= 0 ? 0 : errno;
}

std::string open_trouble(const std::string& path) {
  const int error = open_error(path);
  return error == 0 ? "" : path + ": " + std::strerror(error);
}

std::string proc_trouble() {
  const UniqueFd proc = open_to_read("/proc");
  if (proc.get() < 0) return std::string("/proc: ") + std::strerror(errno);
  std::string own = open_trouble("/proc/self/cmdline");
  if (!own.empty()) return own;
  // Process 1 always runs, and every user may read its command line, unless /proc is mounted with
  // hidepid.
  const int error = open_error("/proc/1/cmdline");
  if (error == 0) return "";
  const bool hidden = error == ENOENT || error == EACCES || error == EPERM;
  return hidden ? "/proc hides the processes of other users (hidepid)"
                : std::string("/proc/1/cmdline: ") + std::strerror(error);
}
