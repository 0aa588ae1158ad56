// Standard output, one whole line at a time.
#ifndef MONITOR_LINE_WRITER_H
#define MONITOR_LINE_WRITER_H

#include <string>

// Writes lines to a descriptor, unbuffered: a line that was written is out. Not owned.
class LineWriter {
 public:
  // Gives up waiting for a reader that does not read once `stop_fd` is readable.
  LineWriter(int fd, int stop_fd) : fd_(fd), stop_fd_(stop_fd) {}

  // Appends the newline. Does nothing once the output is closed.
  void write_line(std::string line);

  // True once the reader has gone or the output failed: there is nobody left to talk to.
  bool closed() const { return closed_; }

  // Why it failed; 0 as long as it has not, and when the reader has merely gone.
  int error() const { return error_; }

 private:
  bool wait_until_writable() const;

  int fd_;
  int stop_fd_;
  bool closed_ = false;
  int error_ = 0;
};

#endif
