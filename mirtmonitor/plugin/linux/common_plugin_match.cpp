// Finds the processes that a configured name selects.
#include <cstring>

#include "common_plugin.h"
#include "process_scan.h"

namespace {

constexpr unsigned int kCmdlineSize = 1024;

}  // namespace

bool MIRT_Linux_Plugin::str_fuzzy_match(const char* str1, const char* pattern) {
  if (str1 == nullptr || pattern == nullptr) return false;
  size_t p1 = 0, p2 = 0;
  size_t mark = 0;  // just after the last '*'; the match before it is final
  while (str1[p1] != '\0' && pattern[p2] != '\0') {
    if (pattern[p2] == '*') {
      mark = ++p2;
    } else if (pattern[p2] == '?' || pattern[p2] == str1[p1]) {
      ++p1;
      ++p2;
    } else if (p1 == 0 && p2 == 0) {
      return false;
    } else {
      // Try again from the mark, one character after the start of the last attempt.
      p1 = p1 - (p2 - mark) + 1;
      p2 = mark;
    }
  }
  if (pattern[p2] == '\0') return str1[p1] == '\0' || (p2 > 0 && pattern[p2 - 1] == '*');
  while (pattern[p2] == '*') ++p2;
  return pattern[p2] == '\0';
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
  return check_with_cmdline(ProcPath<50>("/proc/%d/cmdline", p).get(), task_name, kMatchExact);
}

pid_t MIRT_Linux_Plugin::get_pid_byname(const char* task_name, pid_t& p,
                                        unsigned long long& oldtotalcputime,
                                        unsigned long long& oldprocputime) {
  if (check_pid_with_name(task_name, p)) return p;
  p = 0;
  oldtotalcputime = 0;
  oldprocputime = 0;
  for_each_match(task_name, kMatchExact, [&p](pid_t pid) {
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
  unsigned int found = 0;
  for_each_match(task_name, flag, [&](pid_t pid) {
    if (found >= size) return false;
    pids[found++].pid = pid;
    return true;
  });
  *used = found;
}
