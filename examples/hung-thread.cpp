// A process with one thread that hangs in D state, until it gets SIGTERM or SIGINT.
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "hung_thread.h"

int main() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  sigprocmask(SIG_BLOCK, &ends, nullptr);

  const HungThread hung;
  printf("process %d, thread %d hangs in D state\n", getpid(), hung.tid());
  fflush(stdout);
  int signal_number = 0;
  sigwait(&ends, &signal_number);
  return 0;
}
