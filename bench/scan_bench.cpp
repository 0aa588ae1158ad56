// Scans over all processes, compared with bare loops over the same files.
#include <algorithm>
#include <string>
#include <vector>

#include "bare_calls.h"
#include "common_plugin.h"
#include "idle_processes.h"
#include "mirt_items.h"
#include "paired.h"

namespace {

constexpr unsigned int kRoom = 16384;  // above the number of processes: no scan stops early

// The cmdline files of all processes up to and including one of them.
std::vector<std::string> cmdlines_until(pid_t pid) {
  std::vector<std::string> paths = paths_of_all_processes("cmdline");
  const auto last = std::find(paths.begin(), paths.end(), proc_path(pid, "cmdline"));
  if (last != paths.end()) paths.erase(last + 1, paths.end());
  return paths;
}

// get_allpid() over all processes of the machine.
template <typename Floor>
void scan_all(benchmark::State& state, const char* name, int flag, Floor floor) {
  const size_t expected = idle_processes().pids().size();
  std::vector<process_cpu_context_t> pids(kRoom);
  unsigned int used = 0;
  const auto scan = [&] { MIRT_Linux_Plugin::get_allpid(name, pids.data(), kRoom, &used, flag); };
  scan();
  if (used != expected || used == 0) return state.SkipWithError("not all processes were found");
  paired(state, scan, floor);
}

void ScanWildcard(benchmark::State& state) {
  idle_processes();
  scan_all(state, "*bench-idle --work*", kMatchWildcard,
           [paths = paths_of_all_processes("cmdline")] { bare_read_all(paths); });
}
PAIRED_ROW(ScanWildcard);

void ScanWildcardAndListing(benchmark::State& state) {
  idle_processes();
  scan_all(state, "*bench-idle --work*", kMatchWildcard,
           [paths = paths_of_all_processes("cmdline")] {
             benchmark::DoNotOptimize(bare_listing("/proc"));
             bare_read_all(paths);
           });
}
PAIRED_ROW(ScanWildcardAndListing);

void ScanPrefix(benchmark::State& state) {
  idle_processes();
  scan_all(state, "mirt-bench-idle", kMatchPrefix,
           [paths = paths_of_all_processes("cmdline")] { bare_read_all(paths); });
}
PAIRED_ROW(ScanPrefix);

void ScanExactLast(benchmark::State& state) {
  const std::vector<pid_t>& idle = idle_processes().pids();
  if (idle.empty()) return state.SkipWithError("no processes");
  const std::string name = IdleProcesses::command_line(static_cast<int>(idle.size()) - 1);
  pid_t found = 0;
  const auto scan = [&] {
    found = 0;
    MIRT_Linux_Plugin::get_pid_byname(name.c_str(), found);
  };
  scan();
  if (found != idle.back()) return state.SkipWithError("the last process was not found");
  paired(state, scan, [paths = cmdlines_until(found)] { bare_read_all(paths); });
}
PAIRED_ROW(ScanExactLast);

// An item that measures every match reads two files of each match.
void scan_memory(benchmark::State& state, const char* name,
                 float (*item)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*)) {
  std::vector<std::string> paths = paths_of_all_processes("cmdline");
  for (const pid_t pid : idle_processes().pids()) paths.push_back(proc_path(pid, "status"));
  FI_PARAM_S parameter{};
  std::string(name).copy(parameter.value, sizeof parameter.value - 1);
  FI_CONTEXT_S context{};
  FI_RESULT_S result{};
  const auto scan = [&] { benchmark::DoNotOptimize(item(1, &parameter, &context, &result)); };
  scan();
  if (result.result != 0) return state.SkipWithError(result.reason);
  paired(state, scan, [&paths] { bare_read_all(paths); });
}

void GetProcessMemoryExtern_2000(benchmark::State& state) {
  idle_processes();
  scan_memory(state, "mirt-bench-idle", GetProcessMemoryExtern);
}
PAIRED_ROW(GetProcessMemoryExtern_2000);

void GetProcessMemoryFuzzyMatch_2000(benchmark::State& state) {
  idle_processes();
  scan_memory(state, "*bench-idle --work*", GetProcessMemoryFuzzyMatch);
}
PAIRED_ROW(GetProcessMemoryFuzzyMatch_2000);

}  // namespace
