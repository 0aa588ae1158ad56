#include "proc/thread_owner.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "proc/proc_status.h"

namespace {

constexpr size_t kLongestCommandLine = 4096;

std::string command_line_of(int pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline");
  std::string text(kLongestCommandLine, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(file.gcount()));
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
