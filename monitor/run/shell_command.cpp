#include "run/shell_command.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <vector>

#include "proc/unique_fd.h"
#include "run/descendants.h"

namespace {

using Clock = std::chrono::steady_clock;

// The environment with one more variable. The result is valid for as long as `mark` is, and nobody
// changes the environment.
std::vector<char*> environment_with(std::string& mark) {
  std::vector<char*> variables;
  for (char** variable = environ; *variable; ++variable) variables.push_back(*variable);
  variables.push_back(mark.data());
  variables.push_back(nullptr);
  return variables;
}

// "MIRT_MONITOR_COMMAND=4711.3": what the environment of this command, and no other, has.
std::string new_mark() {
  static std::atomic<unsigned> count{0};
  return "MIRT_MONITOR_COMMAND=" + std::to_string(getpid()) + '.' + std::to_string(++count);
}

// The shell's process id, which is also its group's; nothing if it cannot be started.
std::optional<pid_t> start_shell(const std::string& command, std::string& mark) {
  const std::vector<char*> variables = environment_with(mark);
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  if (posix_spawn_file_actions_init(&actions) != 0) return std::nullopt;
  if (posix_spawnattr_init(&attributes) != 0) {
    posix_spawn_file_actions_destroy(&actions);
    return std::nullopt;
  }
  const bool ready =
      posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
      posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO) == 0 &&
      // The pipe of an item's own command is inheritable while that runs on another thread.
      posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) == 0 &&
      posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP) == 0 &&
      posix_spawnattr_setpgroup(&attributes, 0) == 0;
  const char* const arguments[] = {"sh", "-c", command.c_str(), nullptr};
  pid_t shell = -1;
  const bool started =
      ready && posix_spawn(&shell, "/bin/sh", &actions, &attributes,
                           const_cast<char* const*>(arguments), variables.data()) == 0;
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return started ? std::optional(shell) : std::nullopt;
}

// True once the process has ended; false when the time is up.
bool ends_in_time(pid_t process, Clock::time_point deadline) {
  const UniqueFd end(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  if (end.get() < 0) return false;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd ended{end.get(), POLLIN, 0};
    const int count = poll(&ended, 1, static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
    if (count > 0) return true;
    if (count < 0 && errno != EINTR) return false;
    if (left <= 0) return false;
  }
}

}  // namespace

std::optional<int> run_shell_command(const std::string& command, std::chrono::seconds limit) {
  std::string mark = new_mark();
  const std::optional<pid_t> shell = start_shell(command, mark);
  if (!shell) return std::nullopt;
  const bool in_time = ends_in_time(*shell, Clock::now() + limit);
  if (!in_time) kill_command(*shell, mark);
  int status = 0;
  pid_t waited;
  do waited = waitpid(*shell, &status, 0);
  while (waited < 0 && errno == EINTR);
  if (!in_time || waited != *shell) return std::nullopt;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
