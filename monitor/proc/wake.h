// The one event for which the main thread sleeps.
#ifndef MONITOR_WAKE_H
#define MONITOR_WAKE_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "proc/unique_fd.h"

// Set on any thread, and in signal handlers: something has happened, look at everything. A single
// descriptor, since a monitor has to work where descriptors are short.
class Wake {
 public:
  Wake() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  // False, with errno set, if no descriptor was left.
  bool ready() const { return fd_.get() >= 0; }

  // Readable from set() to clear().
  int fd() const { return fd_.get(); }

  void set() const noexcept {
    const int saved_errno = errno;
    const uint64_t one = 1;
    // Cannot fail in a way that matters: a full counter is readable as well.
    [[maybe_unused]] const ssize_t written = write(fd(), &one, sizeof one);
    errno = saved_errno;
  }

  // Call before looking: what happens from then on sets it again.
  void clear() const noexcept {
    uint64_t ignored;
    [[maybe_unused]] const ssize_t got = read(fd(), &ignored, sizeof ignored);
  }

 private:
  UniqueFd fd_;
};

#endif
