// Detection of hung threads, compared with bare loops over the same files.
#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bare_calls.h"
#include "common_plugin.h"
#include "hung_thread.h"
#include "idle_processes.h"
#include "mirt_items.h"
#include "paired.h"

namespace {

// Threads of this process that wait until the object is destroyed.
class IdleThreads {
 public:
  explicit IdleThreads(size_t count) {
    while (threads_.size() < count) {
      threads_.emplace_back([this] {
        std::unique_lock<std::mutex> lock(mutex_);
        over_changed_.wait(lock, [this] { return over_; });
      });
    }
  }
  IdleThreads(const IdleThreads&) = delete;
  IdleThreads& operator=(const IdleThreads&) = delete;
  ~IdleThreads() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      over_ = true;
    }
    over_changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

 private:
  std::mutex mutex_;
  std::condition_variable over_changed_;
  bool over_ = false;
  std::vector<std::thread> threads_;
};

std::vector<std::string> entries_of(const std::string& directory) {
  std::vector<std::string> entries;
  DIR* const open_directory = opendir(directory.c_str());
  if (open_directory == nullptr) return entries;
  while (const dirent* entry = readdir(open_directory)) {
    if (entry->d_name[0] != '.') entries.push_back(directory + '/' + entry->d_name);
  }
  closedir(open_directory);
  return entries;
}

std::vector<std::string> status_of_threads(pid_t pid) {
  std::vector<std::string> paths = entries_of(proc_path(pid, "task"));
  for (std::string& path : paths) path += "/status";
  return paths;
}

// One process with 2,000 threads, none of them hung.
template <typename Floor>
void threads_row(benchmark::State& state, Floor floor_of) {
  constexpr size_t kThreads = 2000;
  const IdleThreads threads(kThreads);
  const std::vector<std::string> paths = status_of_threads(getpid());
  if (paths.size() <= kThreads) return state.SkipWithError("not all threads were found");
  const auto table = std::make_unique<thread_info_set_t>();
  pid_t tid = 0;
  paired(
      state,
      [&] {
        benchmark::DoNotOptimize(
            MIRT_Linux_Plugin().check_process_status_is_D_byPid(getpid(), table.get(), tid));
      },
      floor_of(paths));
}

void HungThreads_2000(benchmark::State& state) {
  threads_row(state, [](const std::vector<std::string>& paths) {
    return [&paths] { bare_read_all(paths); };
  });
}
PAIRED_ROW(HungThreads_2000);

void HungThreads_2000AndListing(benchmark::State& state) {
  threads_row(state, [](const std::vector<std::string>& paths) {
    return [&paths, task = proc_path(getpid(), "task")] {
      benchmark::DoNotOptimize(bare_listing(task.c_str()));
      bare_read_all(paths);
    };
  });
}
PAIRED_ROW(HungThreads_2000AndListing);

// The whole item on 128 processes, its limit, of 2,000 that match.
void CheckProcessStatusIsD_128(benchmark::State& state) {
  constexpr unsigned int kLooked = 128;
  const std::string pattern = "*bench-idle --work*";
  idle_processes();
  std::vector<process_cpu_context_t> pids(kLooked + 1);
  unsigned int used = 0;
  MIRT_Linux_Plugin::get_allpid(pattern.c_str(), pids.data(), kLooked + 1, &used, kMatchWildcard);
  if (used <= kLooked) return state.SkipWithError("not enough processes were found");
  // The scan ends at the first match above the limit.
  std::vector<std::string> cmdlines = paths_of_all_processes("cmdline"), tasks, statuses;
  const auto last =
      std::find(cmdlines.begin(), cmdlines.end(), proc_path(pids[kLooked].pid, "cmdline"));
  if (last == cmdlines.end()) return state.SkipWithError("a process has ended");
  cmdlines.erase(last + 1, cmdlines.end());
  for (unsigned int i = 0; i < kLooked; ++i) {
    tasks.push_back(proc_path(pids[i].pid, "task"));
    statuses.push_back(status_of_threads(pids[i].pid)[0]);
  }
  FI_PARAM_S parameter{};
  pattern.copy(parameter.value, sizeof parameter.value - 1);
  static FI_CONTEXT_S context{};  // points to the table, which is never freed
  FI_RESULT_S result{};
  paired(
      state,
      [&] { benchmark::DoNotOptimize(CheckProcessStatusIsD(1, &parameter, &context, &result)); },
      [&] {
        // The scan needs few entries of /proc, but the kernel returns a full buffer.
        DIR* const proc = opendir("/proc");
        benchmark::DoNotOptimize(readdir(proc));
        closedir(proc);
        bare_read_all(cmdlines);
        for (unsigned int i = 0; i < kLooked; ++i) {
          benchmark::DoNotOptimize(bare_listing(tasks[i].c_str()));
          bare_read(statuses[i].c_str());
        }
      });
}
PAIRED_ROW(CheckProcessStatusIsD_128);

// A clean-up of a full table that keeps every entry, because each thread really is in D state.
void CleanFullTable(benchmark::State& state) {
  std::list<HungThread> hung;
  while (hung.size() < kMaxThreadInfos) hung.emplace_back();
  MIRT_Linux_Plugin plugin;
  const auto table = std::make_unique<thread_info_set_t>();
  // A thread's counts do not change after it hangs.
  for (int pass = 0; pass < 1000 && table->thread_info_unused < kMaxThreadInfos; ++pass) {
    pid_t tid = 0;
    memset(static_cast<void*>(table.get()), 0, sizeof *table);
    plugin.check_process_status_is_D_byPid(getpid(), table.get(), tid);
  }
  std::vector<std::string> paths;
  for (const HungThread& thread : hung) {
    paths.push_back(proc_path(getpid(), "task/") + std::to_string(thread.tid()) + "/status");
  }
  paired(
      state, [&] { plugin.clean_thread_info_set(table.get()); },
      [&paths] {
        for (const std::string& path : paths) {
          benchmark::DoNotOptimize(access(path.c_str(), F_OK));
          bare_read(path.c_str());
        }
      });
  if (table->thread_info_unused != kMaxThreadInfos) state.SkipWithError("not all threads hung");
}
PAIRED_ROW(CleanFullTable);

}  // namespace
