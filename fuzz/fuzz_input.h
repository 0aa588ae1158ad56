// Common code of the fuzz targets: reading the input, files with given content, the assertion.
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

// A fuzz target reports a failure by abort().
#define FUZZ_CHECK(condition)                                      \
  do {                                                             \
    if (!(condition)) {                                            \
      fprintf(stderr, "%s: not true: %s\n", __FILE__, #condition); \
      abort();                                                     \
    }                                                              \
  } while (false)

// Returns the input piece by piece; empty pieces and zeros at its end.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : left_(reinterpret_cast<const char*>(data), size) {}

  uint8_t byte() {
    const std::string one = take(1);
    return one.empty() ? 0 : static_cast<uint8_t>(one[0]);
  }
  // Up to the next NUL, which is consumed.
  std::string text() {
    const size_t length = left_.find('\0');
    std::string piece = take(length);
    if (!left_.empty()) left_.erase(0, 1);
    return piece;
  }
  std::string rest() { return take(std::string::npos); }
  bool empty() const { return left_.empty(); }

 private:
  std::string take(size_t length) {
    std::string piece = left_.substr(0, length);
    left_.erase(0, piece.size());
    return piece;
  }

  std::string left_;
};

// A file in memory, with a path that can be opened.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& content) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
    FUZZ_CHECK(write(fd_, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    path_ = "/proc/self/fd/" + std::to_string(fd_);
  }
  MemoryFile& operator=(MemoryFile&&) = delete;  // neither copied nor moved
  ~MemoryFile() { close(fd_); }
  const std::string& path() const { return path_; }

 private:
  int fd_;
  std::string path_;
};

#endif
