// What many tests need: real child processes with chosen command lines, threads, files, locks, and
// the process's open descriptors.
#ifndef CHILD_H
#define CHILD_H

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "private_mounts.h"

// Base of what is neither copied nor moved.
struct InPlace {
  InPlace() = default;
  InPlace& operator=(InPlace&&) = delete;
};

// A process with a chosen command line that waits until it is killed. It is the cat program: the
// first argument may be anything, the others must be options of cat ("-u").
class Child : InPlace {
 public:
  // Returns when the process runs with its new command line.
  explicit Child(const std::vector<std::string>& arguments);
  ~Child();

  pid_t pid() const { return pid_; }
  // Returns when it is dead but not reaped: a zombie.
  void kill_unreaped(int signal);
  // Returns when it is dead and reaped.
  void end();

 private:
  pid_t pid_ = -1;
  int end_ = -1;  // of the socket that is its input and output
};

// Keeps a file locked, which it makes if need be.
class HeldLock : InPlace {
 public:
  explicit HeldLock(const std::string& path)
      : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640)) {
    if (flock(file_, LOCK_EX) != 0) throw std::runtime_error("cannot lock " + path);
  }
  ~HeldLock() { close(file_); }
  void let_go() const { flock(file_, LOCK_UN); }

 private:
  int file_;
};

// Threads that are waited for; each has its number.
class Threads : InPlace {
 public:
  explicit Threads(size_t count = 0, const std::function<void(size_t)>& work = nullptr) {
    for (size_t number = 0; number < count; ++number) add([work, number] { work(number); });
  }
  ~Threads() { join(); }
  void add(const std::function<void()>& work) { threads_.emplace_back(work); }
  void join() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

 private:
  std::vector<std::thread> threads_;
};

// Runs this in a child process, which exits with what it returns; the wait status of the child.
int status_of_child(const std::function<int()>& run);

// Makes this process one of another user, in this group and these others. False if it may not.
bool become(uid_t user, gid_t group, const std::vector<gid_t>& others = {});

// All bytes of a file; empty if it does not exist.
std::string read_file(const std::string& path);

// How often the text has this.
inline size_t count_of(const std::string& what, const std::string& text) {
  size_t count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

// The number of open descriptors of this process.
int open_descriptors();

// While it exists this process cannot open files.
class NoDescriptors : InPlace {
 public:
  NoDescriptors();
  ~NoDescriptors();

 private:
  rlimit before_{};
};

#endif
