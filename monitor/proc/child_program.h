// Starts programs for the monitor.
#ifndef MONITOR_CHILD_PROGRAM_H
#define MONITOR_CHILD_PROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "proc/unique_fd.h"

// The program to start, with its arguments. It inherits only the three standard descriptors.
struct Program {
  std::string path;
  std::vector<std::string> arguments;    // the first is its name
  std::vector<std::string> environment;  // "NAME=VALUE"; a mark is added, to find its processes
  int input = -1;                        // its standard input; -1: /dev/null
  int output = -1;                       // its standard output and standard error
};

// A child process in its own session.
class ChildProgram {
 public:
  using Clock = std::chrono::steady_clock;

  // Nothing, with errno set, if it cannot be started.
  static std::optional<ChildProgram> start(const Program& program);

  ChildProgram(ChildProgram&& other) noexcept;
  ChildProgram& operator=(ChildProgram&& other) = delete;
  // Kills the program if it still runs.
  ~ChildProgram();

  // Readable when the program has ended. Processes that it started may continue.
  int end_fd() const { return end_.get(); }

  // Waits until `deadline` for the program to end. Returns its wait status if it has ended.
  std::optional<int> status_by(Clock::time_point deadline);

  // Kills the program and all processes that it started, even in other process groups and sessions.
  void kill_all() noexcept;

 private:
  ChildProgram(pid_t pid, std::string mark, int end)
      : pid_(pid), mark_(std::move(mark)), end_(end) {}

  pid_t pid_;  // -1 after it has been reaped
  std::string mark_;
  UniqueFd end_;
};

// The environment of all commands: a fixed PATH, and HOME, LANG, TZ and TMPDIR of this process.
std::vector<std::string> command_environment();

// Pointers to the texts, with a null at the end, for exec(). The texts must outlive them.
std::vector<char*> pointers(const std::vector<std::string>& texts);

#endif
