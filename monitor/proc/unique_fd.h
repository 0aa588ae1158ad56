// An owner for a descriptor, and the only function that opens files for reading.
#ifndef MONITOR_UNIQUE_FD_H
#define MONITOR_UNIQUE_FD_H

#include <fcntl.h>
#include <unistd.h>

#include <utility>

// Owns one descriptor. close() is never retried: after EINTR the number may be another thread's.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~UniqueFd() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const noexcept { return fd_; }
  // Hands the descriptor over to the caller.
  int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

// Opens a file or directory for reading, close-on-exec.
inline UniqueFd open_to_read(const char* path, int further_flags = 0) noexcept {
  return UniqueFd(open(path, O_RDONLY | O_CLOEXEC | further_flags));
}

#endif
