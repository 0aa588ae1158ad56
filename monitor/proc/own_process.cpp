#include "proc/own_process.h"

#include <dirent.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <memory>
#include <sstream>

#include "proc/descriptors.h"
#include "proc/proc_file.h"

namespace {

double cpu_seconds() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

// Without the descriptor of the listing itself.
size_t open_files() {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
  size_t count = 0;
  while (const dirent* const entry = folder ? readdir(folder.get()) : nullptr) {
    if (entry->d_name[0] != '.') ++count;
  }
  return count > 0 ? count - 1 : 0;
}

}  // namespace

OwnProcess own_process() {
  OwnProcess own;
  own.cpu_s = cpu_seconds();
  own.open_files = open_files();
  own.most_files = descriptor_limit();
  // "8192 2048 ...": all pages, and those in memory
  std::istringstream pages(read_proc_file("/proc/self/statm").value_or(""));
  const auto page_bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  pages >> own.virtual_bytes >> own.resident_bytes;
  own.virtual_bytes *= page_bytes;
  own.resident_bytes *= page_bytes;
  std::istringstream threads(status_value(getpid(), "Threads").value_or(""));
  threads >> own.threads;
  return own;
}

std::string host_name() {
  char name[HOST_NAME_MAX + 1] = {};
  return gethostname(name, sizeof name) == 0 ? name : "";
}
