#include "proc/program_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace {

// access() also succeeds for folders.
bool can_be_started(const std::string& path) {
  struct stat about {};
  if (stat(path.c_str(), &about) != 0) return false;
  if (access(path.c_str(), X_OK) != 0) return false;
  if (S_ISREG(about.st_mode)) return true;
  errno = EACCES;
  return false;
}

}  // namespace

const char* const kProgramPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

std::string find_program(const std::string& name) {
  if (name.find('/') != std::string::npos) return can_be_started(name) ? name : "";
  std::string_view left = kProgramPath;
  int error = ENOENT;
  while (!left.empty()) {
    const size_t length = std::min(left.find(':'), left.size());
    std::string path = std::string(left.substr(0, length)) + '/' + name;
    if (can_be_started(path)) return path;
    if (errno != ENOENT) error = errno;
    left.remove_prefix(std::min(length + 1, left.size()));
  }
  errno = error;
  return "";
}
