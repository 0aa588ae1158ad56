// Fast readers of kernel files and directories: no streams, no heap except in opendir(), and no
// descriptor that a child of the host could inherit.
#ifndef PROC_FILE_H
#define PROC_FILE_H

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <utility>

#include "kelv_securec.h"

// Owns one descriptor. close() is never retried: after EINTR the number may be another thread's.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd& operator=(UniqueFd&&) = delete;  // neither copied nor moved
  ~UniqueFd() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const noexcept { return fd_; }
  int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

// Opens close-on-exec, so that no child of the host inherits the descriptor.
inline UniqueFd open_to_read(const char* path) noexcept {
  return UniqueFd(open(path, O_RDONLY | O_CLOEXEC));
}

// Reads a kernel text file line by line through one buffer on the stack, with only open, read and
// close.
class LineReader {
 public:
  // cppcheck-suppress uninitMemberVar
  explicit LineReader(const char* path) noexcept : file_(open_to_read(path)) {}
  bool is_open() const noexcept { return file_.get() >= 0; }

  // Copies the next line, with its newline, to line[0 .. limit - 1] and terminates it. A line
  // longer than limit - 1 bytes is returned in pieces. NUL bytes are copied like other bytes. False
  // at the end of the file, or if it could not be opened or read.
  bool next(char* line, size_t limit) noexcept;

  // Returns the next line in which strstr() finds the key, like repeated next() calls, but without
  // copying the lines before it.
  bool next_with(const char* key, char* line, size_t limit) noexcept;

 private:
  enum class At { kLineStart, kInsideLine };
  static constexpr size_t kBufferSize = 4096;
  bool refill(At position) noexcept;
  void skip_to(const char* key) noexcept;

  UniqueFd file_;
  bool whole_cmdline_ = false;
  bool drained_ = false;
  size_t begin_ = 0, end_ = 0;    // bytes that refill() read and next() has not returned
  char buffer_[kBufferSize + 1];  // and a NUL; uninitialised, because clearing a page costs time
};

// A path under /proc, truncated to kSize - 1 characters.
template <size_t kSize>
class ProcPath {
 public:
  template <typename... Values>
  explicit ProcPath(const char* format, Values... values) noexcept {
    memset_s(text_, sizeof text_, 0, sizeof text_);
    snprintf_s(text_, sizeof text_, sizeof text_ - 1, format, values...);
  }
  const char* get() const noexcept { return text_; }

 private:
  char text_[kSize];
};

// Returns the names of a directory's subdirectories, in the kernel's order.
class SubdirectoryReader {
 public:
  explicit SubdirectoryReader(const char* path) noexcept : directory_(opendir(path)) {}
  SubdirectoryReader(const SubdirectoryReader&) = delete;
  SubdirectoryReader& operator=(const SubdirectoryReader&) = delete;
  ~SubdirectoryReader() {
    if (directory_ != nullptr) closedir(directory_);
  }
  bool is_open() const noexcept { return directory_ != nullptr; }

  // Returns the next name, valid until the next call; null at the end. Skips "." and "..".
  const char* next() noexcept;

 private:
  DIR* directory_;
};

#endif
