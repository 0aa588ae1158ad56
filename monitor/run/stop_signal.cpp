#include "run/stop_signal.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <initializer_list>

namespace {

// Plain static data: the handler may run at any time, on any thread.
int stop_fd = -1;

extern "C" void ask_to_stop(int) {
  const int saved_errno = errno;
  const uint64_t one = 1;
  // Cannot fail in a way that matters: a full counter is readable as well.
  [[maybe_unused]] const ssize_t written = write(stop_fd, &one, sizeof one);
  errno = saved_errno;
}

extern "C" void do_nothing(int) {}

bool handle(int number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  return sigaction(number, &action, nullptr) == 0;
}

bool is_ignored(int number) {
  struct sigaction action {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

bool StopSignal::install() {
  stop_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (stop_fd < 0) return false;
  sigset_t unblocked;
  sigemptyset(&unblocked);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (number == SIGHUP && is_ignored(number)) continue;  // nohup: meant to outlive its terminal
    if (!handle(number, ask_to_stop)) return false;
    sigaddset(&unblocked, number);
  }
  // A parent that had them blocked handed that down to us.
  sigprocmask(SIG_UNBLOCK, &unblocked, nullptr);
  return handle(SIGPIPE, do_nothing);
}

int StopSignal::fd() {
  return stop_fd;
}
