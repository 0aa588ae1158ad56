#include "proc/census.h"

#include <dirent.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "proc/proc_file.h"
#include "proc/process_handle.h"

std::optional<Census> take_census() {
  const std::unique_ptr<DIR, int (*)(DIR*)> proc(opendir("/proc"), closedir);
  if (!proc) return std::nullopt;
  Census census;
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(proc.get());
    if (!entry && errno != 0) return std::nullopt;
    if (!entry) return census;
    const pid_t pid = std::atoi(entry->d_name);
    const unsigned long long start_ticks = pid > 0 ? start_ticks_of(pid) : 0;
    if (start_ticks != 0) census[pid] = {start_ticks, name_of_process(pid)};
  }
}

std::set<pid_t> in_both(const Census& before, const Census& after) {
  std::set<pid_t> pids;
  for (const auto& [pid, process] : before) {
    const auto found = after.find(pid);
    if (found != after.end() && found->second == process) pids.insert(pid);
  }
  return pids;
}
