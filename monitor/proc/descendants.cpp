#include "proc/descendants.h"

#include <dirent.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <thread>

#include "proc/proc_file.h"
#include "proc/process_handle.h"

namespace {

using ByParent = std::multimap<pid_t, ProcessIdentity>;

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLongest{1};  // a process that hangs in the kernel does not end
constexpr std::chrono::milliseconds kBetweenRounds{1};

struct Reading {
  pid_t parent;
  ProcessIdentity identity;
};

// Parent and start time of one moment.
std::optional<Reading> read_process(pid_t pid) {
  constexpr int kParent = 4, kStartTime = 22;
  const std::string fields = stat_fields(pid);
  if (fields.empty()) return std::nullopt;
  const auto start = std::strtoull(stat_field(fields, kStartTime).c_str(), nullptr, 10);
  return Reading{std::atoi(stat_field(fields, kParent).c_str()), {pid, start}};
}

ByParent all_processes() {
  ByParent processes;
  const std::unique_ptr<DIR, int (*)(DIR*)> proc(opendir("/proc"), closedir);
  while (const dirent* const entry = proc ? readdir(proc.get()) : nullptr) {
    const pid_t pid = std::atoi(entry->d_name);
    if (pid <= 0) continue;
    if (const std::optional<Reading> process = read_process(pid)) {
      processes.emplace(process->parent, process->identity);
    }
  }
  return processes;
}

bool has_ended(pid_t process) {
  return status_value(process, "State").value_or("Z").front() == 'Z';
}

// Kills the descendants of the process. True if all of them have ended.
bool kill_below(pid_t process, const ByParent& processes) {
  bool all_ended = true;
  const auto [begin, end] = processes.equal_range(process);
  for (auto child = begin; child != end; ++child) {
    all_ended = has_ended(child->second.pid) && all_ended;
    signal_process(child->second, SIGKILL);
    all_ended = kill_below(child->second.pid, processes) && all_ended;
  }
  return all_ended;
}

bool is_marked(pid_t process, const std::string& mark) {
  constexpr size_t kMost = size_t{4} << 20;
  const std::string environment = read_proc_file(proc_path(process, "environ"), kMost).value_or("");
  const std::string border(1, '\0');
  return (border + environment).find(border + mark + border) != std::string::npos;
}

void add_below(pid_t process, const ByParent& processes, std::set<ProcessIdentity>& found) {
  const auto [begin, end] = processes.equal_range(process);
  for (auto child = begin; child != end; ++child) {
    if (found.insert(child->second).second) add_below(child->second.pid, processes, found);
  }
}

std::set<ProcessIdentity> all_of_command(pid_t shell, const std::string& mark) {
  const ByParent processes = all_processes();
  std::set<ProcessIdentity> found{{shell, start_ticks_of(shell)}};
  add_below(shell, processes, found);
  for (const auto& [parent, process] : processes) {
    if (is_marked(process.pid, mark) && found.insert(process).second) {
      add_below(process.pid, processes, found);
    }
  }
  return found;
}

// Stops every process of the command, so that none can start another or lose its parent. Done when
// a search finds no new process.
std::set<ProcessIdentity> stop_command(pid_t shell, const std::string& mark) {
  constexpr int kMostLooks = 100;  // a process that forks all the time could escape without end
  std::set<ProcessIdentity> stopped;
  for (int look = 0; look < kMostLooks; ++look) {
    const size_t before = stopped.size();
    for (const ProcessIdentity& process : all_of_command(shell, mark)) {
      if (stopped.insert(process).second) signal_process(process, SIGSTOP);
    }
    if (stopped.size() == before) break;
  }
  return stopped;
}

}  // namespace

void kill_command(pid_t shell, const std::string& mark) noexcept {
  try {
    for (const ProcessIdentity& process : stop_command(shell, mark)) {
      signal_process(process, SIGKILL);
    }
  } catch (const std::exception&) {  // out of memory: kill at least the shell
    kill(shell, SIGKILL);
  }
}

void kill_descendants() {
  // From now on a process that loses its parent becomes our child, so that no fork escapes.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const Clock::time_point deadline = Clock::now() + kLongest;
  while (!kill_below(getpid(), all_processes()) && Clock::now() < deadline) {
    std::this_thread::sleep_for(kBetweenRounds);
  }
}
