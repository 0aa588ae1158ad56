// The event that wakes the main thread.
#ifndef MONITOR_WAKE_H
#define MONITOR_WAKE_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "proc/unique_fd.h"

// Any thread or signal handler sets it; the main thread then checks everything. Needs only one
// descriptor, because a monitor must work when descriptors are short.
class Wake {
 public:
  Wake() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), error_(fd_.get() >= 0 ? 0 : errno) {}

  // Why there is no event, as an errno; 0 if there is one.
  int error() const { return error_; }
  bool ready() const { return error_ == 0; }

  // Readable after set() until clear().
  int fd() const { return fd_.get(); }

  void set() const noexcept {
    const int saved_errno = errno;
    const uint64_t one = 1;
    // An error does not matter: a full counter is also readable.
    [[maybe_unused]] const ssize_t written = write(fd(), &one, sizeof one);
    errno = saved_errno;
  }

  // Call it before the checks, so that later events set it again.
  void clear() const noexcept {
    uint64_t ignored;
    [[maybe_unused]] const ssize_t got = read(fd(), &ignored, sizeof ignored);
  }

 private:
  UniqueFd fd_;
  int error_;
};

#endif
