#include "proc/thread_owner.h"

#include <algorithm>
#include <cstdlib>

#include "proc/proc_file.h"

namespace {

constexpr size_t kLongestCommandLine = 4096;

std::string command_line_of(int pid) {
  std::string text = read_proc_file(proc_path(pid, "cmdline"), kLongestCommandLine).value_or("");
  text.erase(text.find_last_not_of('\0') + 1);
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

}  // namespace

std::optional<ThreadOwner> owner_of_thread(int tid) {
  const std::optional<std::string> pid = status_value(tid, "Tgid");
  if (!pid) return std::nullopt;
  ThreadOwner owner{std::atoi(pid->c_str()), ""};
  owner.command_line = command_line_of(owner.pid);
  if (owner.command_line.empty()) {
    owner.command_line = "[" + status_value(owner.pid, "Name").value_or("") + "]";
  }
  return owner;
}
