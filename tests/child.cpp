#include "child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace {

[[noreturn]] void run_cat(const std::vector<std::string>& arguments, int input, int output) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  execv("/bin/cat", argv.data());
  _exit(127);
}

}  // namespace

Child::Child(const std::vector<std::string>& arguments) {
  int input[2], output[2];
  if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe for a child");
  }
  pid_ = fork();
  if (pid_ == 0) run_cat(arguments, input[0], output[1]);
  close(input[0]);
  close(output[1]);
  to_child_ = input[1];
  from_child_ = output[0];
  // Its echo tells that the program runs; the end of the pipe at exec would come a moment too soon.
  char echo = 'x';
  if (pid_ < 0 || write(to_child_, &echo, 1) != 1 || read(from_child_, &echo, 1) != 1) {
    throw std::runtime_error("the child did not start");
  }
}

Child::~Child() {
  end();
  close(to_child_);
  close(from_child_);
}

void Child::kill_unreaped(int signal) {
  siginfo_t info;
  kill(pid_, signal);
  waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
}

void Child::end() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

int open_descriptors() {
  int open = 0;
  for (int fd = 0; fd < 4096; ++fd) open += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return open;
}

NoDescriptors::NoDescriptors() {
  rlimit limits{};
  getrlimit(RLIMIT_NOFILE, &limits);
  limit_ = limits.rlim_cur;
  // All numbers below the lowest free one are taken.
  const int lowest_free = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(lowest_free);
  limits.rlim_cur = static_cast<rlim_t>(lowest_free);
  setrlimit(RLIMIT_NOFILE, &limits);
}

NoDescriptors::~NoDescriptors() {
  rlimit limits{};
  getrlimit(RLIMIT_NOFILE, &limits);
  limits.rlim_cur = limit_;
  setrlimit(RLIMIT_NOFILE, &limits);
}
