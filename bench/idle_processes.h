// Idle child processes that the scans find.
#ifndef IDLE_PROCESSES_H
#define IDLE_PROCESSES_H

#include <sys/types.h>

#include <string>
#include <vector>

// Starts count processes with the command lines command_line(0), command_line(1), ... The
// destructor ends them; if this process ends without it, their parent death signal does. When the
// constructor returns, all of them have reached pause(). The thread that creates the object must
// outlive it, because the death signal depends on that thread.
class IdleProcesses {
 public:
  explicit IdleProcesses(int count);
  IdleProcesses(const IdleProcesses&) = delete;
  IdleProcesses& operator=(const IdleProcesses&) = delete;
  ~IdleProcesses();

  // In the order of their numbers; fewer than requested if the system refuses more.
  const std::vector<pid_t>& pids() const { return pids_; }

  // The arguments joined by single spaces, as the plug-in compares them.
  static std::string command_line(int number);

 private:
  std::vector<pid_t> pids_;
};

// The 2,000 processes that all rows share; the first call starts them.
const IdleProcesses& idle_processes();

#endif
