// Real child processes with chosen command lines, files, and the process's open descriptors.
#ifndef CHILD_H
#define CHILD_H

#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "private_mounts.h"

// A process with a chosen command line that waits until it is killed. It is the cat program: the
// first argument may be anything, the others must be options of cat ("-u").
class Child {
 public:
  // Returns when the process runs with its new command line.
  explicit Child(const std::vector<std::string>& arguments);
  Child& operator=(Child&&) = delete;  // neither copied nor moved
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

// Runs this in a child process, which exits with what it returns; the wait status of the child.
int status_of_child(const std::function<int()>& run);

// Makes this process one of another user, in this group and these others. False if it may not.
bool become(uid_t user, gid_t group, const std::vector<gid_t>& others = {});

// All bytes of a file; empty if it does not exist.
std::string read_file(const std::string& path);

// The number of open descriptors of this process.
int open_descriptors();

// While it exists this process cannot open files.
class NoDescriptors {
 public:
  NoDescriptors();
  NoDescriptors& operator=(NoDescriptors&&) = delete;
  ~NoDescriptors();

 private:
  rlimit before_{};
};

#endif
