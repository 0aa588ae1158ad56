// mirt_idle_crowd COUNT: starts idle processes with the command lines of IdleProcesses, prints how
// many have started, and ends them at the end of its input.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "idle_processes.h"

int main(int argc, char** argv) {
  const IdleProcesses crowd(argc > 1 ? atoi(argv[1]) : 0);
  printf("%zu\n", crowd.pids().size());
  fflush(stdout);
  char byte;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
  }
}
