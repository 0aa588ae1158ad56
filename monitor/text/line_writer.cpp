#include "text/line_writer.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

void LineWriter::write_line(std::string line) {
  line += '\n';
  size_t written = 0;
  while (!closed_ && written < line.size()) {
    if (!wait_until_writable()) {
      closed_ = true;
      return;
    }
    // A pipe that poll() calls writable takes PIPE_BUF bytes without blocking.
    const size_t chunk = std::min<size_t>(line.size() - written, PIPE_BUF);
    const ssize_t got = write(fd_, line.data() + written, chunk);
    if (got > 0) {
      written += static_cast<size_t>(got);
    } else if (errno != EINTR && errno != EAGAIN) {
      closed_ = true;
      if (errno != EPIPE && errno != EIO) error_ = errno;  // EIO: the terminal has gone
    }
  }
}

// False when a stop was asked for and the reader still does not read.
bool LineWriter::wait_until_writable() const {
  for (;;) {
    pollfd fds[] = {{fd_, POLLOUT, 0}, {stop_fd_, POLLIN, 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (fds[0].revents != 0) return true;  // an error too: write() then tells which
    if (fds[1].revents != 0) return false;
  }
}
