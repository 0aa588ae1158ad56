// Simulates the data plane: prints every SIGUSR1 with its value, until it gets SIGTERM.
//
//     bash -c 'exec -a /QAV/bin/./app_data build/bin/app-data 12 --hang'
//
// With --hang one of its threads hangs in D state.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "hung_thread.h"

int main(int argc, char** argv) {
  sigset_t awaited;
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGUSR1);
  sigaddset(&awaited, SIGTERM);
  sigprocmask(SIG_BLOCK, &awaited, nullptr);  // before any thread: threads inherit it

  std::unique_ptr<HungThread> hung;
  if (argc > 1 && strcmp(argv[argc - 1], "--hang") == 0) hung = std::make_unique<HungThread>();
  printf("process %d, hung thread %d\n", getpid(), hung != nullptr ? hung->tid() : 0);
  fflush(stdout);

  siginfo_t received;
  while (sigwaitinfo(&awaited, &received) != SIGTERM) {
    if (received.si_signo != SIGUSR1) continue;
    printf("SIGUSR1 with value %d\n", received.si_value.sival_int);
    fflush(stdout);
  }
  return 0;
}
