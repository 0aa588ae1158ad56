// Measurements of one moment: memory, open files (handles), disk, existence.
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cmath>

#include "common_plugin.h"
#include "kelv_securec.h"
#include "process_scan.h"
#include "status_line.h"

namespace {

constexpr size_t kLineSize = 256;
constexpr float kNoLimit = INFINITY;
constexpr float kExists = 1.0F;

// "MemTotal:       16305508 kB" -> 16305508: the number after the next line's first word, 0 if
// there is none.
unsigned long long next_number(LineReader& file) {
  char line[kLineSize] = "";
  unsigned long long number = 0;
  if (file.next(line, sizeof line)) sscanf_s(line, "%*s %llu", &number);
  return number;
}

// Since Linux 6.2 the size of /proc/<pid>/fd is the number of descriptors; a walk over 15,000
// descriptors would take milliseconds. Returns 0 on older kernels and other file systems.
unsigned int descriptors_by_size(int directory) {
  struct statfs file_system {};
  struct stat status {};
  if (fstatfs(directory, &file_system) != 0 || file_system.f_type != PROC_SUPER_MAGIC) return 0;
  return fstat(directory, &status) == 0 ? static_cast<unsigned int>(status.st_size) : 0;
}

// Takes ownership of the descriptor. "." and ".." do not count.
unsigned int descriptors_by_walk(int directory) {
  DIR* const entries = fdopendir(directory);
  if (entries == nullptr) {
    close(directory);
    return 0;
  }
  unsigned int count = 0;
  while (readdir(entries) != nullptr) ++count;
  closedir(entries);
  return count > 1 ? count - 2 : count;
}

// Returns the highest value among all matches and stores its process in *leader, which keeps its
// value if no process leads. replaces(value, highest) says whether a process replaces the current
// leader. The search ends at the value `most`, which no other value can exceed.
template <typename Measure, typename Replaces>
float highest_match(const char* task_name, int flag, float most, Measure measure, Replaces replaces,
                    int* leader) {
  struct {
    float value = 0.0F;
    bool led = false;
    pid_t pid = 0;
  } highest;
  for_each_match(
      task_name, flag, [&highest] { highest = {}; },
      [&](pid_t pid) {
        const auto value = static_cast<float>(measure(pid));
        if (replaces(value, highest.value)) highest = {value, true, pid};
        return !highest.led || highest.value < most;
      });
  if (highest.led) *leader = highest.pid;
  return highest.value;
}

// The last one of equal processes wins, so that a PID is reported even if all values are 0.
template <typename Measure>
float highest_of_pattern(const char* pattern, Measure measure, int& max_usage_pid) {
  return highest_match(
      pattern, kMatchWildcard, kNoLimit, measure,
      [](float value, float highest) { return value >= highest; }, &max_usage_pid);
}

}  // namespace

unsigned int MIRT_Linux_Plugin::get_phy_mem(pid_t p) {
  LineReader status(ProcPath<64>("/proc/%d/status", p).get());
  char line[kLineSize];
  int rss_kb = 0;
  if (status.next_with(kRssKey, line, sizeof line)) scan_rss_kb(line, rss_kb);
  return static_cast<unsigned int>(rss_kb / 1024);
}

unsigned int MIRT_Linux_Plugin::get_handle_count(pid_t p) {
  // Open the directory first: its size is readable without permission to open it, but a process
  // without that permission must measure 0.
  UniqueFd directory(
      open(ProcPath<64>("/proc/%d/fd", p).get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() < 0) return 0;
  const unsigned int count = descriptors_by_size(directory.get());
  return count != 0 ? count : descriptors_by_walk(directory.release());
}

unsigned int MIRT_Linux_Plugin::get_handle_max(pid_t p) {
  LineReader limits(ProcPath<64>("/proc/%d/limits", p).get());
  char line[kLineSize] = "";
  for (int skipped = 0; skipped < 8; ++skipped) limits.next(line, sizeof line);
  // "Max open files            1024                 524288               files"
  int soft_limit = 0;
  if (limits.next(line, sizeof line)) sscanf_s(line, "%*s %*s %*s %d", &soft_limit);
  return static_cast<unsigned int>(soft_limit);
}

unsigned int MIRT_Linux_Plugin::get_handle_usage(pid_t p) {
  const unsigned int count = get_handle_count(p);
  if (count == 0) return 0;
  const unsigned int max = get_handle_max(p);
  return max != 0 ? count * 100 / max : 0;
}

bool MIRT_Linux_Plugin::get_sys_mem_info(unsigned long long& totalMem,
                                         unsigned long long& freeMem) {
  LineReader meminfo("/proc/meminfo");
  if (!meminfo.is_open()) return false;
  totalMem = next_number(meminfo);
  freeMem = next_number(meminfo);
  return true;
}

float MIRT_Linux_Plugin::get_sys_mem() {
  unsigned long long total = 0, free = 0;
  if (!get_sys_mem_info(total, free) || total == 0) return 0.0F;
  return static_cast<float>(100.0 * static_cast<double>(total - free) / static_cast<double>(total));
}

float MIRT_Linux_Plugin::get_sys_free_mem() {
  unsigned long long total = 0, free = 0;
  return get_sys_mem_info(total, free) ? static_cast<float>(free >> 10) : 0.0F;
}

float MIRT_Linux_Plugin::get_disk_usage(const char* dir_name) {
  struct statfs file_system;
  memset_s(&file_system, sizeof file_system, 0, sizeof file_system);
  if (statfs(dir_name, &file_system) != 0) return -1.0F;
  if (file_system.f_blocks == 0) return 0.0F;
  const unsigned long long blocks_used = file_system.f_blocks - file_system.f_bfree;
  const unsigned long long den = blocks_used + file_system.f_bavail;
  if (den == 0) return 0.0F;
  // Rounded up twice, by half the denominator and by 0.5: existing alarm thresholds depend on this
  // result.
  const unsigned long long num = blocks_used * 100 + den / 2;
  const float quotient = static_cast<float>(num) / static_cast<float>(den);
  return static_cast<float>(std::trunc(static_cast<double>(quotient) + 0.5));
}

float MIRT_Linux_Plugin::get_process_memory(const char* task_name, pid_t& p) {
  return get_pid_byname(task_name, p) != 0 ? static_cast<float>(get_phy_mem(p)) : 0.0F;
}

float MIRT_Linux_Plugin::get_process_handle(const char* task_name, pid_t& p) {
  return get_pid_byname(task_name, p) != 0 ? static_cast<float>(get_handle_usage(p)) : 0.0F;
}

float MIRT_Linux_Plugin::get_process_exist(const char* task_name, pid_t& p) {
  return get_pid_byname(task_name, p) != 0 ? 1.0F : 0.0F;
}

float MIRT_Linux_Plugin::get_process_memory(const char* task_name) {
  return highest_of_pattern(
      task_name, [](pid_t pid) { return get_phy_mem(pid); }, max_usage_pid);
}

float MIRT_Linux_Plugin::get_process_handle(const char* task_name) {
  return highest_of_pattern(
      task_name, [this](pid_t pid) { return get_handle_usage(pid); }, max_usage_pid);
}

float MIRT_Linux_Plugin::get_process_resource(PROCESS_RESOURCE_E res_type, const char* task_name,
                                              int* pid) {
  if (res_type < PROCESS_RESOURCE_MEM || res_type >= PROCESS_RESOURCE_MAX) return 0.0F;
  // The first match decides on existence.
  return highest_match(
      task_name, kMatchPrefix, res_type == PROCESS_RESOURCE_EXIST ? kExists : kNoLimit,
      [this, res_type](pid_t match) -> unsigned int {
        switch (res_type) {
          case PROCESS_RESOURCE_MEM:
            return get_phy_mem(match);
          case PROCESS_RESOURCE_HANDLE:
            return get_handle_usage(match);
          default:
            return 1;
        }
      },
      [](float value, float highest) { return value > highest; }, pid);
}
