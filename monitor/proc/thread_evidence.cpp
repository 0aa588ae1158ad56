#include "proc/thread_evidence.h"

#include <dirent.h>

#include <cstdlib>
#include <memory>
#include <string_view>

#include "proc/proc_file.h"

namespace {

constexpr unsigned kMostThreadsCounted = 10000;

bool has_any(const std::string& text, std::initializer_list<std::string_view> words) {
  for (const std::string_view word : words) {
    if (text.find(word) != std::string::npos) return true;
  }
  return false;
}

unsigned long number_in_status(int tid, const char* key) {
  return std::strtoul(status_value(tid, key).value_or("0").c_str(), nullptr, 10);
}

// The number of threads of the process in D state with this stack. Only root can read stacks.
unsigned count_same_stack(int pid, const std::string& stack) {
  if (stack.empty()) return 1;
  const std::unique_ptr<DIR, int (*)(DIR*)> tasks(opendir(proc_path(pid, "task").c_str()),
                                                  closedir);
  unsigned count = 0, seen = 0;
  while (const dirent* const entry = tasks ? readdir(tasks.get()) : nullptr) {
    const int tid = std::atoi(entry->d_name);
    if (tid <= 0) continue;
    if (++seen > kMostThreadsCounted) break;
    const bool hangs = status_value(tid, "State").value_or("").compare(0, 1, "D") == 0;
    if (hangs && read_proc_file(proc_path(tid, "stack")).value_or("") == stack) ++count;
  }
  return count > 0 ? count : 1;
}

// "7:freezer:/jobs/a" -> "/jobs/a": the control group of the thread in this hierarchy.
std::optional<std::string> group_in(const std::string& groups, const std::string& hierarchy) {
  const std::string text = "\n" + groups;
  const size_t found = text.find(hierarchy + ":/");
  if (found == std::string::npos) return std::nullopt;
  const size_t path = found + hierarchy.size() + 1;
  return text.substr(path, text.find('\n', path) - path);
}

bool file_has(const std::string& path, const char* word) {
  return read_proc_file(path).value_or("").find(word) != std::string::npos;
}

// Newer kernels freeze a sleeping thread without a trace in its stack. The control group shows it.
bool is_in_frozen_group(int tid) {
  const std::string groups = read_proc_file(proc_path(tid, "cgroup")).value_or("");
  if (const auto group = group_in(groups, ":freezer")) {
    const std::string state = "/sys/fs/cgroup/freezer" + *group + "/freezer.state";
    if (file_has(state, "FROZEN") || file_has(state, "FREEZING")) return true;
  }
  const auto group = group_in(groups, "\n0:");
  if (!group) return false;
  return file_has("/sys/fs/cgroup" + *group + "/cgroup.events", "frozen 1") ||
         file_has("/sys/fs/cgroup/unified" + *group + "/cgroup.events", "frozen 1");
}

}  // namespace

std::string suspicion(const std::string& stack) {
  if (has_any(stack, {"__refrigerator", "do_freezer_trap", "freezer_trap"})) return "frozen";
  // Waits that a fatal signal ends: network file systems, FUSE, and page faults on their files.
  if (has_any(stack, {"_killable", "request_wait_answer", "rpc_wait_bit", "fuse_"})) {
    return "killable";
  }
  return "";
}

std::optional<ThreadEvidence> evidence_of(int tid) {
  const std::optional<std::string> state = status_value(tid, "State");
  if (!state) return std::nullopt;
  ThreadEvidence evidence;
  evidence.tid = tid;
  evidence.name = name_of_process(tid);
  evidence.state = *state;
  evidence.wchan = read_proc_file(proc_path(tid, "wchan")).value_or("");
  if (evidence.wchan == "0") evidence.wchan.clear();
  evidence.stack = read_proc_file(proc_path(tid, "stack")).value_or("");
  evidence.voluntary_switches = number_in_status(tid, "voluntary_ctxt_switches");
  evidence.involuntary_switches = number_in_status(tid, "nonvoluntary_ctxt_switches");
  evidence.suspected =
      is_in_frozen_group(tid) ? "frozen" : suspicion(evidence.stack + evidence.wchan);
  const int pid = std::atoi(status_value(tid, "Tgid").value_or("0").c_str());
  evidence.same_stack = count_same_stack(pid, evidence.stack);
  return evidence;
}
