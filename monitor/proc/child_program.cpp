#include "proc/child_program.h"

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
#include <cstdlib>
#include <mutex>
#include <utility>

#include "proc/descendants.h"
#include "proc/program_path.h"

namespace {

constexpr std::chrono::seconds kToDie{1};  // a program that hangs in the kernel does not end

// "MIRT_MONITOR_COMMAND=4711.3": a unique mark in the environment of the started program.
std::string new_mark() {
  static std::atomic<unsigned> count{0};
  return "MIRT_MONITOR_COMMAND=" + std::to_string(getpid()) + '.' + std::to_string(++count);
}

// Killed programs that did not end in time. They are reaped when the next program starts.
class LeftBehind {
 public:
  void add(pid_t pid) noexcept try {
    const std::lock_guard lock(mutex_);
    pids_.push_back(pid);
  } catch (...) {  // out of memory: it remains a zombie
  }

  void wait_for_ended() {
    const std::lock_guard lock(mutex_);
    const auto has_ended = [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; };
    pids_.erase(std::remove_if(pids_.begin(), pids_.end(), has_ended), pids_.end());
  }

 private:
  std::mutex mutex_;
  std::vector<pid_t> pids_;
};

LeftBehind& left_behind() {
  static auto& all = *new LeftBehind;  // never destroyed: threads use it until the end
  return all;
}

// Owns the attributes and file actions for posix_spawn().
class SpawnPlan {
 public:
  SpawnPlan() {
    if (posix_spawn_file_actions_init(&actions_) == 0) has_actions_ = true;
    if (posix_spawnattr_init(&attributes_) == 0) has_attributes_ = true;
  }
  SpawnPlan& operator=(SpawnPlan&&) = delete;  // neither copied nor moved
  ~SpawnPlan() {
    if (has_actions_) posix_spawn_file_actions_destroy(&actions_);
    if (has_attributes_) posix_spawnattr_destroy(&attributes_);
  }

  bool prepare(int input, int output) {
    return has_actions_ && has_attributes_ && set_files(input, output) && set_signals();
  }

  // 0 or an error number.
  int start(pid_t& pid, const char* path, char* const* arguments, char* const* environment) const {
    return posix_spawn(&pid, path, &actions_, &attributes_, arguments, environment);
  }

 private:
  bool set_files(int input, int output) {
    const int in = input >= 0 ? posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO)
                              : posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO,
                                                                 "/dev/null", O_RDONLY, 0);
    const int out = output >= 0 ? posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO)
                                : posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO,
                                                                   "/dev/null", O_WRONLY, 0);
    return in == 0 && out == 0 &&
           posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO) == 0 &&
           // On another thread an item's command may have a pipe that is not close-on-exec.
           posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1) == 0;
  }

  // The program must not inherit blocked or ignored signals.
  bool set_signals() {
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    return posix_spawnattr_setsigdefault(&attributes_, &all) == 0 &&
           posix_spawnattr_setsigmask(&attributes_, &none) == 0 &&
           posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF |
                                                      POSIX_SPAWN_SETSIGMASK) == 0;
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  bool has_actions_ = false, has_attributes_ = false;
};

// Waits until the descriptor is readable; false when the time is over.
bool readable_by(int fd, std::chrono::steady_clock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
            .count();
    pollfd readable{fd, POLLIN, 0};
    const int count = poll(&readable, 1, static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
    if (count > 0) return true;
    if (count < 0 && errno != EINTR) return false;
    if (left <= 0) return false;
  }
}

}  // namespace

std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> all;
  all.reserve(texts.size() + 2);
  for (const std::string& text : texts) all.push_back(const_cast<char*>(text.c_str()));
  all.push_back(nullptr);
  return all;
}

std::optional<ChildProgram> ChildProgram::start(const Program& program) {
  left_behind().wait_for_ended();
  std::string mark = new_mark();
  const std::vector<char*> arguments = pointers(program.arguments);
  std::vector<char*> environment = pointers(program.environment);
  environment.insert(environment.end() - 1, mark.data());
  SpawnPlan plan;
  if (!plan.prepare(program.input, program.output)) {
    errno = ENOMEM;
    return std::nullopt;
  }
  pid_t pid = -1;
  const int error = plan.start(pid, program.path.c_str(), arguments.data(), environment.data());
  if (error != 0) {
    errno = error;
    return std::nullopt;
  }
  ChildProgram child(pid, std::move(mark), static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (child.end_fd() >= 0) return child;
  const int saved_errno = errno;
  child.kill_all();
  errno = saved_errno;
  return std::nullopt;
}

ChildProgram::ChildProgram(ChildProgram&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      mark_(std::move(other.mark_)),
      end_(std::move(other.end_)) {}

ChildProgram::~ChildProgram() {
  if (pid_ < 0) return;
  kill_all();
  if (!status_by(Clock::now() + kToDie)) left_behind().add(pid_);
}

std::optional<int> ChildProgram::status_by(Clock::time_point deadline) {
  if (pid_ < 0 || !readable_by(end_fd(), deadline)) return std::nullopt;
  int status = 0;
  pid_t waited;
  do waited = waitpid(pid_, &status, 0);
  while (waited < 0 && errno == EINTR);
  constexpr int kUnknown = 127 << 8;  // exit status 127, as in shells
  const bool is_told = waited == std::exchange(pid_, -1);
  return is_told ? status : kUnknown;
}

void ChildProgram::kill_all() noexcept {
  if (pid_ > 0) kill_command(pid_, mark_);
}

std::vector<std::string> command_environment() {
  std::vector<std::string> variables{"PATH=" + std::string(kProgramPath)};
  for (const char* const name : {"HOME", "LANG", "TZ", "TMPDIR"}) {
    const char* const value = std::getenv(name);
    if (value) variables.push_back(std::string(name) + '=' + value);
  }
  return variables;
}
