#include "child.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

[[noreturn]] void run_cat(const std::vector<std::string>& arguments, int socket) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  dup2(socket, STDIN_FILENO);
  dup2(socket, STDOUT_FILENO);
  execv("/bin/cat", argv.data());
  _exit(127);
}

}  // namespace

Child::Child(const std::vector<std::string>& arguments) {
  int ends[2] = {-1, -1};
  const bool paired = socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0;
  pid_ = fork();
  if (pid_ == 0) run_cat(arguments, ends[1]);
  close(ends[1]);
  end_ = ends[0];
  // Its echo shows that the program runs; the end of the socket at exec would come slightly too
  // early.
  char echo = 'x';
  if (!paired || pid_ < 0 || write(end_, &echo, 1) != 1 || read(end_, &echo, 1) != 1) {
    throw std::runtime_error("the child did not start");
  }
}

Child::~Child() {
  end();
  close(end_);
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

int status_of_child(const std::function<int()>& run) {
  const pid_t pid = fork();
  if (pid == 0) _exit(run());
  int status = -1;
  return waitpid(pid, &status, 0) == pid ? status : -1;
}

bool become(uid_t user, gid_t group, const std::vector<gid_t>& others) {
  return setgroups(others.size(), others.data()) == 0 && setgid(group) == 0 && setuid(user) == 0;
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

int open_descriptors() {
  int open = 0;
  for (int fd = 0; fd < 4096; ++fd) open += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return open;
}

NoDescriptors::NoDescriptors() {
  getrlimit(RLIMIT_NOFILE, &before_);
  // All numbers below the lowest free one are in use.
  const int lowest_free = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(lowest_free);
  const rlimit none{static_cast<rlim_t>(lowest_free), before_.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
}

NoDescriptors::~NoDescriptors() {
  setrlimit(RLIMIT_NOFILE, &before_);
}
