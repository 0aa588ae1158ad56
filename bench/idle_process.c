/* A process that does nothing and ends with the benchmark that started it at the latest. */
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

int main(void) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  /* The parent waits for one byte from each child. If the parent ended before the line above took
   * effect, this write() ends the child with SIGPIPE. */
  if (write(STDIN_FILENO, "", 1) != 1) return 1;
  close(STDIN_FILENO);
  for (;;) pause();
}
