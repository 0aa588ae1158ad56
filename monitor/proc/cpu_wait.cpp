#include "proc/cpu_wait.h"

#include <dirent.h>

#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>

#include "proc/proc_file.h"

namespace {

constexpr int kMostThreads = 32;  // a process with thousands is not worth thousands of reads

// "5230 (a b) R 1 ...": the state follows the last parenthesis.
bool is_runnable(const std::string& stat) {
  const size_t end = stat.rfind(") ");
  return end != std::string::npos && stat.compare(end + 2, 1, "R") == 0;
}

bool add_thread(const std::string& folder, CpuWait& sum) {
  const auto schedstat = read_proc_file(folder + "/schedstat");
  const auto stat = read_proc_file(folder + "/stat");
  uint64_t run_ns = 0, wait_ns = 0;
  if (!schedstat || !stat ||
      std::sscanf(schedstat->c_str(), "%" SCNu64 " %" SCNu64, &run_ns, &wait_ns) != 2) {
    return false;
  }
  sum.run_ns += run_ns;
  sum.wait_ns += wait_ns;
  sum.runnable = sum.runnable || is_runnable(*stat);
  return true;
}

}  // namespace

std::optional<CpuWait> cpu_wait_of(int pid) {
  const std::string tasks = proc_path(pid, "task");
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(tasks.c_str()), closedir);
  CpuWait sum;
  int threads = 0;
  while (const dirent* const entry =
             folder && threads < kMostThreads ? readdir(folder.get()) : nullptr) {
    if (entry->d_name[0] != '.' && add_thread(tasks + "/" + entry->d_name, sum)) ++threads;
  }
  return threads > 0 ? std::optional(sum) : std::nullopt;
}
