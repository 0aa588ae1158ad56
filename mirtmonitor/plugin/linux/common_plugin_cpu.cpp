// CPU usage: the growth of tick counters between two samples.
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <optional>

#include "common_plugin.h"
#include "heap_memory.h"
#include "kelv_securec.h"
#include "machine_ticks.h"
#include "proc_file.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr unsigned int kMaxMatches = 128;
constexpr int kExternPeriodUs = 500000;

struct total_cpu_occupy_t {
  unsigned long long user, nice, system, idle;
};

struct process_cpu_occupy_t {
  unsigned long long utime, stime;
};

// Returns the first line of a file, on the heap; null if memory is short or the file cannot be
// opened.
HeapArray<char> read_first_line(const char* path) {
  HeapArray<char> line = allocate_zeroed<char>(kLineSize);
  if (line == nullptr) return nullptr;
  LineReader file(path);
  if (!file.is_open()) return nullptr;
  file.next(line.get(), kLineSize);
  return line;
}

// Returns the growth of part in percent of the growth of whole; nothing if either went backwards.
std::optional<double> growth_percent(unsigned long long part_before, unsigned long long part,
                                     unsigned long long whole_before, unsigned long long whole) {
  if (part < part_before || whole < whole_before) return std::nullopt;
  return 100.0 * static_cast<double>(part - part_before) /
         static_cast<double>(whole - whole_before);
}

// Samples every match twice, period_us apart, and returns the highest share. replaces(usage,
// highest) says whether a process replaces the current highest one; lead(pid) then records it.
template <typename Pcpu, typename Replaces, typename Lead>
float busiest_match(const char* task_name, int flag, int period_us, Pcpu pcpu, Replaces replaces,
                    Lead lead) {
  const auto matches = allocate_zeroed<process_cpu_context_t>(kMaxMatches);
  if (matches == nullptr) return 0.0F;
  unsigned int used = 0;
  MIRT_Linux_Plugin::get_allpid(task_name, matches.get(), kMaxMatches, &used, flag);
  if (used == 0) return 0.0F;
  for (unsigned int i = 0; i < used; ++i) {
    matches[i].syscputime = MIRT_Linux_Plugin::get_cpu_total_occupy();
    matches[i].procputime = MIRT_Linux_Plugin::get_cpu_process_occupy(matches[i].pid);
  }
  usleep(static_cast<useconds_t>(period_us));
  float highest = 0.0F;
  for (unsigned int i = 0; i < used; ++i) {
    const float usage = pcpu(matches[i]);
    if (!replaces(usage, highest)) continue;
    highest = usage;
    lead(matches[i].pid);
  }
  return highest;
}

}  // namespace

unsigned int MIRT_Linux_Plugin::get_cpu_core_num() {
  static std::atomic<unsigned int> core_count{0};
  unsigned int cores = core_count.load(std::memory_order_relaxed);
  if (cores == 0) {
    cores = static_cast<unsigned int>(get_nprocs());
    core_count.store(cores, std::memory_order_relaxed);
  }
  return cores;
}

unsigned long long MIRT_Linux_Plugin::get_cpu_total_occupy() {
  const HeapArray<char> line = read_first_line("/proc/stat");
  if (line == nullptr) return 0;
  total_cpu_occupy_t ticks{};
  sscanf_s(line.get(), "%*s %llu %llu %llu %llu", &ticks.user, &ticks.nice, &ticks.system,
           &ticks.idle);
  return ticks.user + ticks.nice + ticks.system + ticks.idle;
}

unsigned long long MIRT_Linux_Plugin::get_cpu_process_occupy(pid_t p) {
  const HeapArray<char> line = read_first_line(ProcPath<64>("/proc/%d/stat", p).get());
  if (line == nullptr) return 0;
  process_cpu_occupy_t ticks{};
  sscanf_s(get_items(line.get(), 14), "%llu %llu", &ticks.utime, &ticks.stime);
  return ticks.utime + ticks.stime;
}

float MIRT_Linux_Plugin::get_pcpu(pid_t p, unsigned long long& oldtotalcputime,
                                  unsigned long long& oldprocputime) {
  const unsigned long long totalcputime2 = get_cpu_total_occupy();
  if (totalcputime2 == 0) return 0.0F;
  const unsigned long long procputime2 = get_cpu_process_occupy(p);
  if (procputime2 == 0) return 0.0F;
  if (totalcputime2 == oldtotalcputime) return 0.0F;
  const auto pcpu = growth_percent(oldprocputime, procputime2, oldtotalcputime, totalcputime2);
  oldtotalcputime = totalcputime2;
  oldprocputime = procputime2;
  return static_cast<float>(pcpu.value_or(0.0));
}

int MIRT_Linux_Plugin::get_sys_cpu_tick(unsigned long long& user, unsigned long long& nice,
                                        unsigned long long& system, unsigned long long& idle,
                                        unsigned long long& iowait, unsigned long long& irq,
                                        unsigned long long& softirq) {
  LineReader stat("/proc/stat");
  if (!stat.is_open()) return -1;
  char line[256] = "";
  stat.next(line, sizeof line);
  unsigned long long ticks[7] = {};
  sscanf_s(line, "%*s %llu %llu %llu %llu %llu %llu %llu", &ticks[0], &ticks[1], &ticks[2],
           &ticks[3], &ticks[4], &ticks[5], &ticks[6]);
  user = ticks[0];
  nice = ticks[1];
  system = ticks[2];
  idle = ticks[3];
  iowait = ticks[4];
  irq = ticks[5];
  softirq = ticks[6];
  return 0;
}

bool read_machine_ticks(MachineTicks& ticks) {
  unsigned long long nice = 0, system = 0, iowait = 0, irq = 0, softirq = 0;
  if (MIRT_Linux_Plugin::get_sys_cpu_tick(ticks.user, nice, system, ticks.idle, iowait, irq,
                                          softirq) != 0) {
    return false;
  }
  ticks.total = ticks.user + nice + system + ticks.idle + iowait + irq + softirq;
  return true;
}

float MIRT_Linux_Plugin::get_sys_cpu(sys_cpu_context_t* pstContext) {
  MachineTicks now;
  if (!read_machine_ticks(now) || now.total == pstContext->totaltime) return 0.0F;
  const auto idle =
      growth_percent(pstContext->idletime, now.idle, pstContext->totaltime, now.total);
  pstContext->idletime = now.idle;
  pstContext->totaltime = now.total;
  // Idle time can grow more than the total when the kernel decreases its iowait counter. Not an
  // error.
  return static_cast<float>(std::max(100.0 - idle.value_or(100.0), 0.0));
}

float MIRT_Linux_Plugin::get_sys_usr_cpu(sys_usr_cpu_context_t* pstUsrContext) {
  MachineTicks now;
  if (!read_machine_ticks(now) || now.total == pstUsrContext->totaltime) return 0.0F;
  const auto user =
      growth_percent(pstUsrContext->uesrtime, now.user, pstUsrContext->totaltime, now.total);
  pstUsrContext->uesrtime = now.user;
  pstUsrContext->totaltime = now.total;
  return static_cast<float>(user.value_or(0.0));
}

float MIRT_Linux_Plugin::get_process_cpu(const char* task_name, pid_t& p,
                                         unsigned long long& oldtotalcputime,
                                         unsigned long long& oldprocputime) {
  if (get_pid_byname(task_name, p, oldtotalcputime, oldprocputime) == 0) return 0.0F;
  return get_pcpu(p, oldtotalcputime, oldprocputime);
}

float MIRT_Linux_Plugin::get_process_cpu_extern(const char* task_name, int* pid) {
  return busiest_match(
      task_name, kMatchPrefix, kExternPeriodUs,
      [this](process_cpu_context_t& match) {
        return get_pcpu(match.pid, match.syscputime, match.procputime);
      },
      [](float usage, float highest) { return usage > highest; },
      [pid](pid_t leader) { *pid = leader; });
}

float MIRT_Linux_Plugin::get_process_cpu(const char* task_name, int period_us) {
  return busiest_match(
      task_name, kMatchWildcard, period_us,
      [this](process_cpu_context_t& match) {
        return get_pcpu(match.pid, match.syscputime, match.procputime);
      },
      [](float usage, float highest) { return usage >= highest; },
      [this](pid_t leader) { max_usage_pid = leader; });
}
