// Programs that the monitor starts.
#ifndef MONITOR_CHILD_PROGRAM_H
#define MONITOR_CHILD_PROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "proc/unique_fd.h"

// What to start, and with what. It gets no descriptor but the three named here.
struct Program {
  std::string path;
  std::vector<std::string> arguments;    // its name first
  std::vector<std::string> environment;  // "NAME=VALUE"; a mark is added, by which it is found
  int input = -1;                        // its standard input; -1: /dev/null
  int output = -1;                       // its standard output and standard error
};

// A program that runs in a session of its own, as a child of this process.
class ChildProgram {
 public:
  using Clock = std::chrono::steady_clock;

  // Nothing, with errno set, if it cannot be started.
  static std::optional<ChildProgram> start(const Program& program);

  ChildProgram(ChildProgram&& other) noexcept;
  ChildProgram& operator=(ChildProgram&& other) noexcept;
  // Kills what still runs.
  ~ChildProgram();

  // Readable from the end of the program on. What it has started may go on.
  int end_fd() const { return end_.get(); }

  // Its status as wait() gives it, once it has ended. Waits until `deadline` at most.
  std::optional<int> status_by(Clock::time_point deadline);

  // Kills it and all that it has started, also what has left its group and its session.
  void kill_all() noexcept;

 private:
  ChildProgram(pid_t pid, std::string mark, int end)
      : pid_(pid), mark_(std::move(mark)), end_(end) {}

  pid_t pid_;  // -1 once it has been waited for
  std::string mark_;
  UniqueFd end_;
};

// The environment of this process.
std::vector<std::string> own_environment();

#endif
