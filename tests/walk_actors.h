// Real processes whose command lines change, and a log of these changes.
#ifndef WALK_ACTORS_H
#define WALK_ACTORS_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "child.h"

// Records which process had which name, in ticks of a logical clock.
class ActorLog {
 public:
  static const std::string kLetters;

  uint64_t tick() const { return ++clock_; }
  // Returns the whole command line of an actor. Only the letter differs.
  std::string name(char letter) const;

  // Records that a process got this letter between two ticks. Letter 0 means that it ended.
  void note(pid_t pid, uint64_t before, uint64_t after, char letter);

  // Returns true if the process may have had one of the letters at some time in this interval.
  bool could_be(pid_t pid, const std::string& letters, uint64_t begin, uint64_t end) const;
  // Returns the processes that had one of the letters during the whole interval.
  std::vector<pid_t> always(const std::string& letters, uint64_t begin, uint64_t end) const;

 private:
  struct Stay {
    pid_t pid;
    char letter;
    uint64_t came, was_there, began_to_leave, had_left;
  };
  mutable std::atomic<uint64_t> clock_{0};
  mutable std::mutex mutex_;
  std::vector<Stay> stays_;
};

// Runs one process after another, each with a name from the log.
class Actor : InPlace {
 public:
  explicit Actor(ActorLog& log) : log_(log) {}
  ~Actor() { end(); }

  // Starts, renames, executes or ends the process, depending on a random number.
  void act(unsigned int chance);

 private:
  void end();

  ActorLog& log_;
  pid_t pid_ = 0;
  int socket_ = -1;
};

// A process whose command line cannot be read before let_go(): see stuck_process.c.
class StuckProcess : InPlace {
 public:
  StuckProcess();
  ~StuckProcess();
  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  const std::string& name() const { return name_; }
  std::string command_line() const { return name_ + " stuck " + file_; }
  void let_go();

 private:
  std::string name_, file_;
  pid_t keeper_ = 0, pid_ = 0;
  int socket_ = -1;
};

#endif
