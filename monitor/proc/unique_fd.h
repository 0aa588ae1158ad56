// A descriptor with an owner.
#ifndef MONITOR_UNIQUE_FD_H
#define MONITOR_UNIQUE_FD_H

#include <unistd.h>

// Owns one descriptor. close() is never retried: after EINTR the number may be another thread's.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const noexcept { return fd_; }

 private:
  int fd_;
};

#endif
