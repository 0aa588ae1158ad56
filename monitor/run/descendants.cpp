#include "run/descendants.h"

#include <dirent.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>
#include <thread>

#include "proc/proc_status.h"

namespace {

using ByParent = std::multimap<pid_t, pid_t>;

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongest{1};  // one that hangs in the kernel outlasts any time
constexpr std::chrono::milliseconds kBetweenRounds{1};

ByParent all_processes() {
  ByParent processes;
  const std::unique_ptr<DIR, int (*)(DIR*)> proc(opendir("/proc"), closedir);
  while (const dirent* const entry = proc ? readdir(proc.get()) : nullptr) {
    const pid_t pid = std::atoi(entry->d_name);
    if (pid <= 0) continue;
    if (const auto parent = status_value(pid, "PPid")) {
      processes.emplace(std::atoi(parent->c_str()), pid);
    }
  }
  return processes;
}

bool has_ended(pid_t process) {
  return status_value(process, "State").value_or("Z").front() == 'Z';
}

// Kills what descends from the process. True if nothing of it is left but ended processes.
bool kill_below(pid_t process, const ByParent& processes) {
  bool all_ended = true;
  const auto [begin, end] = processes.equal_range(process);
  for (auto child = begin; child != end; ++child) {
    all_ended = has_ended(child->second) && all_ended;
    kill(child->second, SIGKILL);
    all_ended = kill_below(child->second, processes) && all_ended;
  }
  return all_ended;
}

}  // namespace

void kill_descendants() {
  // What loses its parent from here on becomes our own child: no fork of theirs slips through.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const Clock::time_point deadline = Clock::now() + kLongest;
  while (!kill_below(getpid(), all_processes()) && Clock::now() < deadline) {
    std::this_thread::sleep_for(kBetweenRounds);
  }
}
