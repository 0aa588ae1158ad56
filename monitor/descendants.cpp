#include "descendants.h"

#include <dirent.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>

#include "thread_owner.h"

namespace {

using ByParent = std::multimap<pid_t, pid_t>;

ByParent all_processes() {
  ByParent processes;
  const std::unique_ptr<DIR, int (*)(DIR*)> proc(opendir("/proc"), closedir);
  while (const dirent* const entry = proc ? readdir(proc.get()) : nullptr) {
    const pid_t pid = std::atoi(entry->d_name);
    const std::optional<std::string> parent =
        pid > 0 ? status_value(pid, "PPid") : std::nullopt;  // gone, or no process at all
    if (parent) processes.emplace(std::atoi(parent->c_str()), pid);
  }
  return processes;
}

void add_descendants(pid_t process, const ByParent& processes, std::set<pid_t>& found) {
  const auto [begin, end] = processes.equal_range(process);
  for (auto child = begin; child != end; ++child) {
    if (found.insert(child->second).second) add_descendants(child->second, processes, found);
  }
}

}  // namespace

void kill_descendants() {
  std::set<pid_t> found, stopped;
  do {
    stopped = found;
    add_descendants(getpid(), all_processes(), found);
    // Stopped, they start nothing more; what they had started before shows in the next round.
    for (const pid_t pid : found) kill(pid, SIGSTOP);
  } while (found != stopped);
  for (const pid_t pid : found) kill(pid, SIGKILL);
}
