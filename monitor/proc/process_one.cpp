#include "proc/process_one.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>
#include <optional>

namespace {

// All signals except those that a fault of this process causes.
sigset_t signals_to_pass_on() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) {
    sigdelset(&signals, fault);
  }
  return signals;
}

// Takes the status of every child that has ended. Returns that of `program` if it has.
std::optional<int> take_statuses(pid_t program) {
  std::optional<int> its_status;
  int status = 0;
  for (pid_t ended; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
    if (ended == program) its_status = status;
  }
  return its_status;
}

[[noreturn]] void serve(pid_t program, const sigset_t& signals) {
  // An orphan that ended before the signals were blocked has sent its signal already.
  std::optional<int> status = take_statuses(program);
  while (!status) {
    const int number = sigwaitinfo(&signals, nullptr);
    if (number > 0 && number != SIGCHLD) kill(program, number);
    status = take_statuses(program);
  }
  _exit(WIFEXITED(*status) ? WEXITSTATUS(*status) : 128 + WTERMSIG(*status));
}

}  // namespace

bool continue_below_process_one() {
  if (getpid() != 1) return true;
  const sigset_t signals = signals_to_pass_on();
  sigset_t before;
  sigprocmask(SIG_BLOCK, &signals, &before);  // kept until serve() takes them
  const pid_t program = fork();
  if (program > 0) serve(program, signals);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return program == 0;
}
