// endurance CHEAP SCANS: calls items very often in one process. CHEAP is the number of calls of the
// cheap items together, SCANS that of each item that searches all processes (items that start a
// program: a tenth). Shows heap, descriptors, threads and resident memory before and after; exits
// with 1 if one of them has grown. scripts/endurance.sh runs it.
#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "idle_processes.h"
#include "item_call.h"
#include "kelv_log.h"
#include "mirt_items.h"

// Items that measure over a time of their own need not wait here.
extern "C" int usleep(useconds_t) {
  return 0;
}

namespace {

struct Row {
  const char* name;
  Item item;
  std::vector<std::pair<const char*, std::string>> params;
  FI_CONTEXT_S context{};

  void call() {
    std::vector<FI_PARAM_S> records;
    for (const auto& [key, value] : params) records.push_back(parameter(key, value));
    FI_RESULT_S result{};
    item(static_cast<int>(records.size()), records.data(), &context, &result);
    if (result.result == 0) return;
    std::fprintf(stderr, "%s failed: %s\n", name, result.reason);
    std::exit(1);
  }
};

size_t entries(const char* folder) {
  size_t count = 0;
  DIR* const directory = opendir(folder);
  while (const dirent* entry = readdir(directory)) count += entry->d_name[0] != '.';
  closedir(directory);
  return count;
}

long resident_kib() {
  long pages = 0;
  FILE* const file = std::fopen("/proc/self/statm", "re");
  if (std::fscanf(file, "%*d %ld", &pages) != 1) pages = -1;
  std::fclose(file);
  return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

struct Use {
  size_t heap = mallinfo2().uordblks, descriptors = entries("/proc/self/fd"),
         threads = entries("/proc/self/task");
  long resident = resident_kib();
};

// Calls the rows in turn. The first hundredth fills what is allocated once.
bool run(const char* title, std::vector<Row> rows, long calls) {
  for (long i = 0; i < calls / 100 + 1; ++i) {
    for (Row& row : rows) row.call();
  }
  const Use before;
  for (long i = 0; i < calls; ++i) {
    for (Row& row : rows) row.call();
  }
  const Use after;
  std::printf("%-28s %9ld %10zu %10zu %6zu %6zu %6zu %6zu %9ld %9ld\n", title,
              calls * static_cast<long>(rows.size()), before.heap, after.heap, before.descriptors,
              after.descriptors, before.threads, after.threads, before.resident, after.resident);
  std::fflush(stdout);
  return after.heap <= before.heap + 4096 && after.descriptors == before.descriptors &&
         after.threads == before.threads && after.resident <= before.resident + 256;
}

}  // namespace

int main(int argc, char** argv) {
  const long cheap = argc == 3 ? std::atol(argv[1]) : 0, scans = argc == 3 ? std::atol(argv[2]) : 0;
  if (cheap <= 0 || scans <= 0) {
    std::fprintf(stderr, "usage: endurance CHEAP SCANS\n");
    return 2;
  }
  kelvlog_set_sink([](const KELV_LOG_RECORD_S*) {});
  const IdleProcesses idle(20);
  const std::string exact = IdleProcesses::command_line(7);
  const std::string pattern = "*" + exact.substr(1);
  const auto process = [](const std::string& name) {
    return std::vector<std::pair<const char*, std::string>>{{"ProcessName", name}};
  };
  std::vector<Row> cheap_rows{{"GetSysCPU", GetSysCPU, {}},
                              {"GetSysUsrCPU", GetSysUsrCPU, {}},
                              {"GetSysMemory", GetSysMemory, {}},
                              {"GetSysFreeMemory", GetSysFreeMemory, {}},
                              {"GetDiskUsage", GetDiskUsage, {{"Directory", "/"}}},
                              {"GetProcessMemory", GetProcessMemory, process(exact)},
                              {"GetProcessSysCPU", GetProcessSysCPU, process(exact)},
                              {"GetProcessCoreCPU", GetProcessCoreCPU, process(exact)},
                              {"GetProcessHandle", GetProcessHandle, process(exact)},
                              {"ProcessHeartBeat",
                               ProcessHeartBeat,
                               {{"ProcessName", "endurance"}, {"ProcessMoudleId", "17"}}}};
  std::vector<Row> scan_rows{
      {"IsExistProcess", IsExistProcess, process("no such process")},
      {"IsExistProcessExtern", IsExistProcessExtern, process(exact)},
      {"GetProcessMemoryExtern", GetProcessMemoryExtern, process(exact)},
      {"GetProcessMemoryFuzzyMatch", GetProcessMemoryFuzzyMatch, process(pattern)},
      {"GetProcessHandleExtern", GetProcessHandleExtern, process(exact)},
      {"GetProcessHandleFuzzyMatch", GetProcessHandleFuzzyMatch, process(pattern)},
      {"GetProcessSysCPUExtern", GetProcessSysCPUExtern, process(exact)},
      {"GetProcessSysCPUFuzzyMatch", GetProcessSysCPUFuzzyMatch, process(pattern)},
      {"GetProcessCoreCPUExtern", GetProcessCoreCPUExtern, process(exact)},
      {"GetProcessCoreCPUFuzzyMatch", GetProcessCoreCPUFuzzyMatch, process(pattern)},
      {"CheckProcessStatusIsD", CheckProcessStatusIsD, process(pattern)}};
  std::vector<Row> other_rows{
      {"IsExistProcessPreCmd",
       IsExistProcessPreCmd,
       {{"ProcessName", exact}, {"PreCmd", "echo yes"}, {"RetKeyWords", "yes"}}},
      {"SendErrRpt",
       as_float<SendErrRpt>,
       {{"ErrCode", "0xF000020F"}, {"ProcessName", "app"}, {"ProcessMoudleId", "17"}}}};
  std::printf("%-28s %9s %21s %13s %13s %19s\n%38s %10s %10s %6s %6s %6s %6s %9s %9s\n", "", "",
              "heap, bytes", "descriptors", "threads", "resident, KiB", "calls", "before", "after",
              "before", "after", "before", "after", "before", "after");
  const long rounds = cheap / static_cast<long>(cheap_rows.size());
  bool flat = run("cheap items", std::move(cheap_rows), rounds);
  for (Row& row : scan_rows) flat = run(row.name, {row}, scans) && flat;
  for (Row& row : other_rows) flat = run(row.name, {row}, scans / 10 + 1) && flat;
  std::printf(flat ? "nothing has grown\n" : "something has grown\n");
  return flat ? 0 : 1;
}
