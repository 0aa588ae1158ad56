// Idle child processes, for scans to walk over.
#ifndef IDLE_PROCESSES_H
#define IDLE_PROCESSES_H

#include <sys/types.h>

#include <string>
#include <vector>

// Starts count processes with the command lines command_line(0), command_line(1), ... and ends them
// in its destructor, or by their death signal when this process ends without it. All have reached
// their pause when the constructor returns. Belongs to the thread that made it, which must outlive
// it: the death signal is tied to that thread.
class IdleProcesses {
 public:
  explicit IdleProcesses(int count);
  IdleProcesses(const IdleProcesses&) = delete;
  IdleProcesses& operator=(const IdleProcesses&) = delete;
  ~IdleProcesses();

  // In the order of their numbers; fewer than asked for when the system refuses more.
  const std::vector<pid_t>& pids() const { return pids_; }

  // The arguments joined by single blanks, as the plug-in compares them.
  static std::string command_line(int number);

 private:
  std::vector<pid_t> pids_;
};

// The 2,000 that all rows share, started when the first row asks for them.
const IdleProcesses& idle_processes();

#endif
