#include "kelv_cmd.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace {

// The descriptors and signal mask for the new shell. Both objects own memory, hence the destructor.
class ShellStart {
 public:
  ShellStart() {
    ready_ = posix_spawn_file_actions_init(&actions_) == 0;
    if (!ready_) return;
    if (posix_spawnattr_init(&attributes_) != 0) {
      posix_spawn_file_actions_destroy(&actions_);
      ready_ = false;
      return;
    }
    sigset_t none;
    sigemptyset(&none);
    ready_to_start_ = posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1) == 0 &&
                      posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
                      posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK) == 0;
  }
  ShellStart(const ShellStart&) = delete;
  ShellStart& operator=(const ShellStart&) = delete;
  ~ShellStart() {
    if (!ready_) return;
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }

  bool run(const char* command, pid_t& child) {
    if (!ready_to_start_) return false;
    char shell[] = "sh", option[] = "-c";
    char* const arguments[] = {shell, option, const_cast<char*>(command), nullptr};
    return posix_spawn(&child, "/bin/sh", &actions_, &attributes_, arguments, environ) == 0;
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  bool ready_ = false;
  bool ready_to_start_ = false;
};

}  // namespace

int kelv_cmd_exec(const char* command) {
  if (command == nullptr) return -1;
  pid_t child = 0;
  if (!ShellStart().run(command, child)) return -1;
  // ECHILD means that the host ignores SIGCHLD and the kernel has reaped the shell.
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return 0;
}
