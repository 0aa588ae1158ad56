#include "proc/trusted_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace {

constexpr int kMostLinks = 40;  // the limit of the kernel

// Follows a path, one component at a time.
class Walk {
 public:
  explicit Walk(std::string path) : rest_(std::move(path)) { go_to_start(); }

  // False, with errno set, if it cannot reach the end of the path.
  bool finish() {
    while (folder_.get() >= 0 && !rest_.empty()) {
      if (!step(take_component())) return false;
    }
    return folder_.get() >= 0;
  }
  int folder() const { return folder_.get(); }

 private:
  void go_to_start() {
    const bool is_absolute = !rest_.empty() && rest_.front() == '/';
    if (is_absolute || folder_.get() < 0) folder_ = open_path(AT_FDCWD, is_absolute ? "/" : ".");
  }

  std::string take_component() {
    const size_t begin = std::min(rest_.find_first_not_of('/'), rest_.size());
    const size_t end = std::min(rest_.find('/', begin), rest_.size());
    std::string component = rest_.substr(begin, end - begin);
    rest_.erase(0, end);
    return component;
  }

  bool step(const std::string& component) {
    if (component.empty()) return true;
    UniqueFd next = open_path(folder_.get(), component.c_str());
    struct stat status {};
    if (next.get() < 0 || fstat(next.get(), &status) != 0) return false;
    if (S_ISLNK(status.st_mode)) return follow(next.get());
    folder_ = std::move(next);
    return true;  // if it is not a folder, the next open fails
  }

  bool follow(int link) {
    struct stat status {};
    char target[PATH_MAX];
    const ssize_t length = readlinkat(link, "", target, sizeof target);
    if (fstat(folder_.get(), &status) != 0 || length < 0) return false;
    if (others_can_write(status) || ++links_ > kMostLinks) {
      errno = ELOOP;
      return false;
    }
    rest_ = std::string(target, static_cast<size_t>(length)) + rest_;
    go_to_start();
    return true;
  }

  static UniqueFd open_path(int folder, const char* name) {
    return UniqueFd(openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  }

  std::string rest_;
  UniqueFd folder_{-1};
  int links_ = 0;
};

}  // namespace

bool others_can_write(const struct stat& status) {
  const bool is_ours = status.st_uid == 0 || status.st_uid == geteuid();
  return !is_ours || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

UniqueFd open_trusted_folder(const std::string& path) {
  Walk walk(path);
  if (!walk.finish()) return UniqueFd(-1);
  return UniqueFd(openat(walk.folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}
