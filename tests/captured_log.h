// What the monitor's log says while a test runs, and waiting for something to happen.
#ifndef CAPTURED_LOG_H
#define CAPTURED_LOG_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "child.h"

// While it lives, standard error, to which the log goes, is a file in memory.
class CapturedLog : InPlace {
 public:
  CapturedLog()
      : file_(memfd_create("log", MFD_CLOEXEC)), before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
    fcntl(file_, F_SETFL, O_APPEND);  // or threads that write at the same time overwrite each other
    dup2(file_, STDERR_FILENO);
  }
  ~CapturedLog() {
    dup2(before_, STDERR_FILENO);
    close(before_);
    close(file_);
  }

  std::string text() const {
    std::string all(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
    all.resize(static_cast<size_t>(pread(file_, all.data(), all.size(), 0)));
    return all;
  }
  // How often the log says this.
  size_t count(const std::string& what) const { return count_of(what, text()); }

 private:
  int file_, before_;
};

class TemporaryFolder : InPlace {
 public:
  TemporaryFolder() {
    char name[] = "/tmp/alerts-XXXXXX";
    path_ = mkdtemp(name);
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// True once it is so. Gives up only after a time that no machine needs.
template <typename Predicate>
bool comes_true(Predicate predicate) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(100);
  while (!predicate()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

#endif
