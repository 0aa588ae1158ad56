#include "proc/cpu_wait.h"

#include <dirent.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "proc/proc_file.h"

namespace {

using std::chrono::nanoseconds;

constexpr size_t kMostThreadsRead = 32;  // limits the reads for a process with thousands of threads

std::string folder_of(int pid, int tid) {
  return proc_path(pid, "task/") + std::to_string(tid);
}

// "123456 7890 12": nanoseconds run, nanoseconds waited, time slices.
std::optional<ThreadTimes> times_of(int pid, int tid) {
  const auto schedstat = read_proc_file(folder_of(pid, tid) + "/schedstat");
  int64_t ran_ns = 0, waited_ns = 0;
  if (!schedstat ||
      std::sscanf(schedstat->c_str(), "%" SCNd64 " %" SCNd64, &ran_ns, &waited_ns) != 2) {
    return std::nullopt;
  }
  return ThreadTimes{tid, nanoseconds(ran_ns), nanoseconds(waited_ns)};
}

// "5230 (a b) R 1 ...": the state follows the last parenthesis.
bool is_runnable(int pid, int tid) {
  const std::string stat = read_proc_file(folder_of(pid, tid) + "/stat").value_or("");
  const size_t end = stat.rfind(") ");
  return end != std::string::npos && stat.compare(end + 2, 1, "R") == 0;
}

}  // namespace

std::vector<ThreadTimes> thread_times_of(int pid) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(proc_path(pid, "task").c_str()),
                                                   closedir);
  std::vector<ThreadTimes> threads;
  while (const dirent* const entry =
             folder && threads.size() < kMostThreadsRead ? readdir(folder.get()) : nullptr) {
    const int tid = std::atoi(entry->d_name);
    const auto times = tid > 0 ? times_of(pid, tid) : std::nullopt;
    if (times) threads.push_back(*times);
  }
  return threads;
}

std::vector<int> still_waiting(int pid, const std::vector<ThreadTimes>& earlier) {
  std::vector<int> waiting;
  for (const ThreadTimes& thread : earlier) {
    const auto now = times_of(pid, thread.tid);
    const bool got_nothing = now && now->ran == thread.ran && now->waited == thread.waited;
    if (got_nothing && is_runnable(pid, thread.tid)) waiting.push_back(thread.tid);
  }
  return waiting;
}

nanoseconds longest_wait(const std::vector<ThreadTimes>& before,
                         const std::vector<ThreadTimes>& now, const std::vector<int>& waiting,
                         nanoseconds elapsed) {
  nanoseconds longest{0};
  for (const ThreadTimes& thread : now) {
    const auto then = std::find_if(before.begin(), before.end(),
                                   [&](const ThreadTimes& each) { return each.tid == thread.tid; });
    if (then == before.end()) continue;
    const bool waits = std::count(waiting.begin(), waiting.end(), thread.tid) != 0;
    longest = std::max(longest,
                       waits ? elapsed - (thread.ran - then->ran) : thread.waited - then->waited);
  }
  return longest;
}
