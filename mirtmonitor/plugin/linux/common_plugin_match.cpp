// Finds the processes that a configured name selects.
#include <cstring>

#include "command_lines.h"
#include "common_plugin.h"
#include "heap_memory.h"
#include "process_scan.h"

namespace {

constexpr unsigned int kCmdlineSize = 1024;

// The caller's PID array. It can be restored as long as the walk can start again.
class PidList {
 public:
  explicit PidList(process_cpu_context_t* pids) : pids_(pids) {}
  unsigned int size() const { return size_; }

  void add(pid_t pid) {
    if (size_ < kEarlySteps) before_[size_] = pids_[size_].pid;
    pids_[size_++].pid = pid;
  }

  void restore() {
    for (; size_ > 0; --size_) pids_[size_ - 1].pid = before_[size_ - 1];
  }

 private:
  process_cpu_context_t* pids_;
  unsigned int size_ = 0;
  pid_t before_[kEarlySteps];
};

}  // namespace

bool MIRT_Linux_Plugin::str_fuzzy_match(const char* str1, const char* pattern) {
  return str1 != nullptr && pattern != nullptr && matches_wildcard(str1, pattern);
}

bool MIRT_Linux_Plugin::check_with_cmdline(const char* file_path, const char* task_name,
                                           const int flag) {
  if (task_name == nullptr) return false;
  const HeapArray<char> buf = allocate<char>(kCmdlineSize);
  if (buf == nullptr) return false;
  if (read_file(file_path, buf.get(), kCmdlineSize, 1) != 0) return false;
  change_cmdlie_to_str(buf.get(), kCmdlineSize);
  switch (flag) {
    case kMatchPrefix:
      return strncmp(buf.get(), task_name, strlen(task_name)) == 0;
    case kMatchWildcard:
      return str_fuzzy_match(buf.get(), task_name);
    default:
      return strcmp(buf.get(), task_name) == 0;
  }
}

bool MIRT_Linux_Plugin::check_pid_with_name(const char* task_name, pid_t& p) {
  if (p == 0) return false;
  CmdlineTurn turn(p);
  return turn.take() &&
         check_with_cmdline(ProcPath<50>("/proc/%d/cmdline", p).get(), task_name, kMatchExact);
}

pid_t MIRT_Linux_Plugin::get_pid_byname(const char* task_name, pid_t& p,
                                        unsigned long long& oldtotalcputime,
                                        unsigned long long& oldprocputime) {
  if (check_pid_with_name(task_name, p)) return p;
  p = 0;
  oldtotalcputime = 0;
  oldprocputime = 0;
  for_each_match(
      task_name, kMatchExact, [] {},
      [&p](pid_t pid) {
        p = pid;
        return false;
      });
  return p;
}

pid_t MIRT_Linux_Plugin::get_pid_byname(const char* task_name, pid_t& p) {
  unsigned long long oldtotalcputime = 0, oldprocputime = 0;
  return get_pid_byname(task_name, p, oldtotalcputime, oldprocputime);
}

void MIRT_Linux_Plugin::get_allpid(const char* task_name, process_cpu_context_t* pids,
                                   unsigned int size, unsigned int* used, const int flag) {
  PidList found(pids);
  for_each_match(
      task_name, flag, [&found] { found.restore(); },
      [&found, size](pid_t pid) {
        if (found.size() >= size) return false;
        found.add(pid);
        return true;
      });
  *used = found.size();
}
