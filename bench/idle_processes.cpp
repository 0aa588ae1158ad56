#include "idle_processes.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>

namespace {

constexpr int kSharedProcesses = 2000;
const std::string kName = "mirt-bench-idle";
const std::string kOption = "--worker";

// The program is in the same directory as this one.
std::string idle_program() {
  char path[PATH_MAX] = "";
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  const std::string self(path, length > 0 ? static_cast<size_t>(length) : 0);
  return self.substr(0, self.rfind('/') + 1) + "mirt_bench_idle";
}

std::optional<pid_t> start(const std::string& program, int number, int ready_fd) {
  std::string name = kName, option = kOption, value = std::to_string(number);
  char* arguments[] = {name.data(), option.data(), value.data(), nullptr};
  char* environment[] = {nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ready_fd, STDIN_FILENO);
  pid_t pid = 0;
  const int error = posix_spawn(&pid, program.c_str(), &actions, nullptr, arguments, environment);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? std::optional(pid) : std::nullopt;
}

// Waits until each child has sent its byte or has ended.
void wait_until_ready(int fd, size_t children) {
  char bytes[256];
  for (size_t ready = 0; ready < children;) {
    const ssize_t got = read(fd, bytes, sizeof bytes);
    if (got == 0 || (got < 0 && errno != EINTR)) return;
    if (got > 0) ready += static_cast<size_t>(got);
  }
}

}  // namespace

IdleProcesses::IdleProcesses(int count) {
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) return;
  const std::string program = idle_program();
  for (int number = 0; number < count; ++number) {
    const std::optional<pid_t> pid = start(program, number, ready[1]);
    if (!pid) break;
    pids_.push_back(*pid);
  }
  close(ready[1]);
  wait_until_ready(ready[0], pids_.size());
  close(ready[0]);
}

IdleProcesses::~IdleProcesses() {
  for (const pid_t pid : pids_) kill(pid, SIGKILL);
  for (const pid_t pid : pids_) waitpid(pid, nullptr, 0);
}

std::string IdleProcesses::command_line(int number) {
  return kName + " " + kOption + " " + std::to_string(number);
}

const IdleProcesses& idle_processes() {
  static const IdleProcesses shared(kSharedProcesses);
  return shared;
}
