/* A process that does nothing, and ends at the latest with the benchmark that started it. */
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

int main(void) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  /* The parent waits for one byte of each child. A parent that ended before the line above took
   * effect reads no more, and the byte kills its sender. */
  if (write(STDIN_FILENO, "", 1) != 1) return 1;
  close(STDIN_FILENO);
  for (;;) pause();
}
