// The listings of all user processes.
#include "allprocess.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "cmdline_turn.h"
#include "common_plugin.h"
#include "heap_memory.h"
#include "kelv_list.h"
#include "kelv_securec.h"
#include "machine_ticks.h"
#include "proc_file.h"
#include "sample_index.h"
#include "status_line.h"

namespace {

constexpr unsigned int kSampleSeconds = 60;

// Returns the percent of the machine's time between two readings that was spent in user mode; 0 if
// a counter went backwards.
int user_percent(const MachineTicks& before, const MachineTicks& after) {
  if (after.user < before.user || after.total < before.total) return 0;
  const unsigned long long percent =
      (after.user - before.user) * 100 / (after.total - before.total);
  return static_cast<int>(std::min<unsigned long long>(percent, INT_MAX));
}

// Returns percent of one core between two samples, rounded down. 0 if the process's counter went
// backwards: a newer process of the same name has the PID.
int core_percent(const PROCESS_BASICDATA_S& before, const PROCESS_BASICDATA_S& after) {
  if (after.procputime < before.procputime) return 0;
  const double ratio = 100.0 * static_cast<double>(after.procputime - before.procputime) /
                       static_cast<double>(after.syscputime - before.syscputime);
  const double percent = MIRT_Linux_Plugin::get_cpu_core_num() * ratio;
  return percent < INT_MAX ? static_cast<int>(percent) : INT_MAX;
}

void free_list(list_head* head) {
  for_each_node(head, [](list_head* node) {
    kelv_list_del(node);
    free(node);
  });
}

}  // namespace

// Walk over /proc.

bool isDigit(char* str, int strLen) {
  if (str == nullptr) return false;
  return std::all_of(str, str + std::max(strLen, 0), [](char c) { return c >= '0' && c <= '9'; });
}

int ForeachProcDir(void (*iterfunc)(const char* procPath, int pid, void* pContext,
                                    bool isFirstCpuCheck),
                   void* pContext, const bool isFirstCpuCheck) {
  SubdirectoryReader processes("/proc");
  if (!processes.is_open()) return -1;
  while (const char* name = processes.next()) {
    if (!isDigit(const_cast<char*>(name), static_cast<int>(strlen(name)))) continue;
    iterfunc(ProcPath<256>("/proc/%s", name).get(), atoi(name), pContext, isFirstCpuCheck);
  }
  return 0;
}

// Samples.

bool IsUserProcess(const char* cmdLinePath) {
  const UniqueFd file = open_to_read(cmdLinePath);
  char byte[256];
  return file.get() >= 0 && read(file.get(), byte, sizeof byte) > 0;
}

namespace {

// Both functions leave out a process in whose command line another thread is stuck.

bool has_cmdline(const char* procPath, pid_t pid) {
  CmdlineTurn turn(pid);
  return turn.take() && IsUserProcess(ProcPath<256>("%s/cmdline", procPath).get());
}

bool read_cmdline(PROCESS_BASICDATA_S& sample) {
  CmdlineTurn turn(sample.pid);
  return turn.take() && MIRT_Linux_Plugin::get_cmdline_bypid(sample.pid, sample.cmdline,
                                                             sizeof sample.cmdline) == 0;
}

// Returns a new sample with this PID, all other members zero; null when memory is short.
HeapRecord<PROCESS_BASICDATA_S> new_sample(pid_t pid) {
  auto sample = allocate_zeroed<PROCESS_BASICDATA_S>();
  if (sample != nullptr) sample->pid = pid;
  return sample;
}

void add_to_list(HeapRecord<PROCESS_BASICDATA_S> sample, void* head) {
  kelv_list_init(&sample->stEntry);
  kelv_list_add_tail(&sample.release()->stEntry, static_cast<list_head*>(head));
}

// Reads name and memory in one pass over the status file. False if there is no name, or no memory
// because the process ended after its command line was read.
bool read_name_and_memory(PROCESS_BASICDATA_S& sample, const char* procPath) {
  LineReader status(ProcPath<64>("/proc/%d/status", sample.pid).get());
  char line[256];
  int rss_kb = 0;
  bool has_name = false, has_rss = false;
  while (!has_name && status.next(line, sizeof line)) {  // it is the first line
    has_name = scan_name(line, sample.name, sizeof sample.name);
    has_rss = has_rss || scan_rss_kb(line, rss_kb);
  }
  if (!has_rss && status.next_with(kRssKey, line, sizeof line)) {
    has_rss = scan_rss_kb(line, rss_kb);
  }
  sample.rss = rss_kb / 1024;
  return has_name && (has_rss || has_cmdline(procPath, sample.pid));
}

// Reads only what a memory listing needs. Each file is read once, except the command line of a
// process that shows no memory. A process without a command line is not a user process.
void GetProcessMemoryData(const char* procPath, pid_t pid, void* pContext,
                          const bool /*isFirstCpuCheck*/) {
  auto sample = new_sample(pid);
  if (sample == nullptr || !read_cmdline(*sample) || !read_name_and_memory(*sample, procPath)) {
    return;
  }
  add_to_list(std::move(sample), pContext);
}

}  // namespace

void GetProcessBasicData(const char* procPath, pid_t pid, void* pContext,
                         const bool isFirstCpuCheck) {
  if (!has_cmdline(procPath, pid)) return;
  auto sample = new_sample(pid);
  if (sample == nullptr) return;
  // Both readings of the process lie between those of the machine, so that its share never exceeds
  // 100 %.
  if (isFirstCpuCheck) {
    sample->syscputime = MIRT_Linux_Plugin::get_cpu_total_occupy();
    sample->procputime = MIRT_Linux_Plugin::get_cpu_process_occupy(pid);
  } else {
    sample->procputime = MIRT_Linux_Plugin::get_cpu_process_occupy(pid);
    sample->syscputime = MIRT_Linux_Plugin::get_cpu_total_occupy();
  }
  sample->rss = static_cast<int>(MIRT_Linux_Plugin::get_phy_mem(pid));
  if (MIRT_Linux_Plugin::get_procname_bypid(pid, sample->name, sizeof sample->name) != 0 ||
      !read_cmdline(*sample)) {
    return;
  }
  add_to_list(std::move(sample), pContext);
}

void FreeProcBasicData(list_head* pstBasicDataHead) {
  free_list(pstBasicDataHead);
}

// Matches between the two passes.

int ProcBasicDataCmpMatchPidName(list_head* pstEntry1, list_head* pstEntry2) {
  const PROCESS_BASICDATA_S* const first = sample_of(pstEntry1);
  const PROCESS_BASICDATA_S* const second = sample_of(pstEntry2);
  return first->pid == second->pid && strcmp(first->name, second->name) == 0 ? 0 : -1;
}

list_head* SearchList(list_head* pstListHead, int (*compare)(list_head*, list_head*),
                      list_head* pstEntry1) {
  for (list_head* node = pstListHead->next; node != pstListHead; node = node->next) {
    if (compare(pstEntry1, node) == 0) return node;
  }
  return nullptr;
}

// The result list.

PROCESS_INFO_S* ProcBasicDataToProcInfo(PROCESS_BASICDATA_S* procBasicData) {
  auto info = allocate_zeroed<PROCESS_INFO_S>();
  if (info == nullptr) return nullptr;
  info->pid = procBasicData->pid;
  info->corecpu = procBasicData->corecpu;
  info->rss = procBasicData->rss;
  memcpy_s(info->name, sizeof info->name, procBasicData->name, sizeof info->name);
  info->name[sizeof info->name - 1] = '\0';
  memcpy_s(info->cmdline, sizeof info->cmdline, procBasicData->cmdline, sizeof info->cmdline);
  info->cmdline[sizeof info->cmdline - 1] = '\0';
  info->used = false;
  kelv_list_init(&info->stEntry);
  return info.release();
}

namespace {

// Adds a result entry for every valid sample. An entry is left out when memory is short.
void add_valid_samples(list_head* samples, list_head* results) {
  for_each_node(samples, [results](list_head* node) {
    if (sample_of(node)->invalid) return;
    PROCESS_INFO_S* const info = ProcBasicDataToProcInfo(sample_of(node));
    if (info != nullptr) kelv_list_add_tail(&info->stEntry, results);
  });
}

}  // namespace

int CalcAllProcessCoreCPU(list_head* pstFirstBasicDataHead, list_head* pstSecondBasicDataHead,
                          list_head* pstAllProcessCoreCPUListHead) {
  SampleIndex second_samples(pstSecondBasicDataHead);
  for_each_node(pstFirstBasicDataHead, [&second_samples](list_head* node) {
    PROCESS_BASICDATA_S* const first = sample_of(node);
    const PROCESS_BASICDATA_S* const second = second_samples.find(*first);
    first->invalid = second == nullptr || second->syscputime <= first->syscputime;
    if (!first->invalid) first->corecpu = core_percent(*first, *second);
  });
  add_valid_samples(pstFirstBasicDataHead, pstAllProcessCoreCPUListHead);
  return 0;
}

int CalcAllProcessRssMem(list_head* pstBasicDataHead, list_head* pstAllProcessRssMemListHead) {
  add_valid_samples(pstBasicDataHead, pstAllProcessRssMemListHead);
  return 0;
}

namespace {

// Owns the samples of one pass.
class SampleList {
 public:
  SampleList() { kelv_list_init(&head_); }
  SampleList(const SampleList&) = delete;
  SampleList& operator=(const SampleList&) = delete;
  ~SampleList() { FreeProcBasicData(&head_); }
  list_head* head() { return &head_; }
  bool is_empty() const { return head_.next == &head_; }
  void move_first_to(SampleList& other) {
    list_head* const node = head_.next;
    kelv_list_del(node);
    kelv_list_add_tail(node, other.head());
  }

 private:
  list_head head_;
};

}  // namespace

int GetAllProcessCoreCPU(list_head* allProcessListHead, int* usersyscpu) {
  SampleList first, second;
  MachineTicks before, after;
  if (!read_machine_ticks(before)) return -1;
  if (ForeachProcDir(GetProcessBasicData, first.head(), true) != 0) return -1;
  sleep(kSampleSeconds);
  if (!read_machine_ticks(after)) return -1;
  if (ForeachProcDir(GetProcessBasicData, second.head(), false) != 0) return -1;
  if (after.total == before.total) return -1;
  *usersyscpu = user_percent(before, after);
  kelv_list_init(allProcessListHead);
  CalcAllProcessCoreCPU(first.head(), second.head(), allProcessListHead);
  return 0;
}

int GetAllProcessRssMem(list_head* allProcessListHead) {
  SampleList samples;
  if (ForeachProcDir(GetProcessMemoryData, samples.head(), true) != 0) return -1;
  kelv_list_init(allProcessListHead);
  // One sample at a time, so that each entry reuses the memory of the previous sample. New pages
  // for all entries would take 2 % of the time.
  while (!samples.is_empty()) {
    SampleList one;
    samples.move_first_to(one);
    CalcAllProcessRssMem(one.head(), allProcessListHead);
  }
  return 0;
}

void FreeAllProcessList(list_head* allProcessListHead) {
  free_list(allProcessListHead);
}
