#include "thread_owner.h"

#include <algorithm>
#include <fstream>
#include <iterator>

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

std::optional<std::string> status_value(int tid, const std::string& key) {
  std::ifstream status("/proc/" + std::to_string(tid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, key.size() + 2, key + ":\t") == 0) return line.substr(key.size() + 2);
  }
  return std::nullopt;
}

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
