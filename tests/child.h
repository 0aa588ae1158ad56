// Real child processes with chosen command lines, files, and what the process holds open.
#ifndef CHILD_H
#define CHILD_H

#include <sys/resource.h>
#include <sys/types.h>

#include <string>
#include <vector>

// A process that waits, under a command line of the test's choice, until it is killed. It is the
// cat program: the first argument may be anything, the others have to be options of it ("-u").
class Child {
 public:
  // Returns when the process runs under its new command line.
  explicit Child(const std::vector<std::string>& arguments);
  Child& operator=(Child&&) = delete;  // neither copied nor moved
  ~Child();

  pid_t pid() const { return pid_; }
  // Returns when it is dead, with its end not yet noted: a zombie.
  void kill_unreaped(int signal);
  // Returns when nothing is left of it.
  void end();

 private:
  pid_t pid_ = -1;
  int end_ = -1;  // of the socket that is its input and output
};

// All bytes of a file; none if it is not there.
std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

// How many descriptors this process has open.
int open_descriptors();

// While it lives this process cannot open anything more.
class NoDescriptors {
 public:
  NoDescriptors();
  NoDescriptors& operator=(NoDescriptors&&) = delete;
  ~NoDescriptors();

 private:
  rlimit before_{};
};

#endif
