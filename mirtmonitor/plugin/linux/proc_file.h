// Cheap readers of kernel files and directories: no stream, no heap of their own beyond what the
// directory stream takes, and nothing that a child of the host could inherit.
#ifndef PROC_FILE_H
#define PROC_FILE_H

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <memory>
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

// The only way in: no child that the host starts ever inherits what we open.
inline UniqueFd open_to_read(const char* path) noexcept {
  return UniqueFd(open(path, O_RDONLY | O_CLOEXEC));
}

// Cuts a kernel text file into lines through one buffer on the stack: open, read, close, no more.
class LineReader {
 public:
  explicit LineReader(const char* path) noexcept : file_(open_to_read(path)) {}
  bool is_open() const noexcept { return file_.get() >= 0; }

  // Copies the next line, its newline included, into line[0 .. limit - 1] and terminates it; a line
  // of more than limit - 1 bytes comes in pieces, and NUL bytes are bytes like any other. False
  // when nothing is left, which includes a file that could not be opened or read.
  bool next(char* line, size_t limit) noexcept;

  // The next line in which strstr() finds the key: what calling next() until then would give, but
  // the lines before it are not looked at one by one.
  bool next_with(const char* key, char* line, size_t limit) noexcept;

 private:
  enum class At { kLineStart, kInsideLine };
  static constexpr size_t kBufferSize = 4096;
  bool refill(At position) noexcept;
  void skip_to(const char* key) noexcept;

  UniqueFd file_;
  bool whole_cmdline_ = false;
  bool drained_ = false;
  size_t begin_ = 0, end_ = 0;    // what refill() brought and next() has not handed out yet
  char buffer_[kBufferSize + 1];  // and a NUL; left uninitialised: clearing a page would show
};

// A path under /proc, at most kSize - 1 characters of it.
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

// The names of a directory's subdirectories, in the order in which the kernel lists them.
class SubdirectoryReader {
 public:
  explicit SubdirectoryReader(const char* path) noexcept : directory_(opendir(path)) {}
  SubdirectoryReader(const SubdirectoryReader&) = delete;
  SubdirectoryReader& operator=(const SubdirectoryReader&) = delete;
  ~SubdirectoryReader() {
    if (directory_ != nullptr) closedir(directory_);
  }
  bool is_open() const noexcept { return directory_ != nullptr; }

  // The next name, valid until the call after this one; null at the end. "." and ".." are left out.
  const char* next() noexcept;

 private:
  DIR* directory_;
};

// Heap memory for plain records, all zero; null when there is none.
struct Free {
  void operator()(void* memory) const noexcept { free(memory); }
};
template <typename Record>
using HeapArray = std::unique_ptr<Record[], Free>;
template <typename Record>
using HeapRecord = std::unique_ptr<Record, Free>;

template <typename Record>
HeapArray<Record> allocate_zeroed(size_t count) noexcept {
  return HeapArray<Record>(static_cast<Record*>(calloc(count, sizeof(Record))));
}
template <typename Record>
HeapRecord<Record> allocate_zeroed() noexcept {
  return HeapRecord<Record>(static_cast<Record*>(calloc(1, sizeof(Record))));
}

// The same, with whatever lay there before: for those who fill it anyway.
template <typename Record>
HeapArray<Record> allocate(size_t count) noexcept {
  return HeapArray<Record>(static_cast<Record*>(malloc(count * sizeof(Record))));
}

#endif
