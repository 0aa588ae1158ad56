/* A process that changes its command line on request. argv[0], its only argument, ends with a
 * letter. A command on standard input has two bytes: 'r' or 'e', and the new letter. 'r' changes
 * the letter in place, 'e' executes this program again with the new name. The process writes one
 * byte each time it has its new name, and exits at the end of the input. */
#include <string.h>
#include <unistd.h>

int main(int argc, char** argv) {
  char* const letter = argc > 0 ? argv[0] + strlen(argv[0]) - 1 : NULL;
  char command[2];
  if (letter == NULL) return 1;
  while (write(STDOUT_FILENO, "", 1) == 1 &&
         read(STDIN_FILENO, command, sizeof command) == sizeof command) {
    *letter = command[1];
    if (command[0] == 'e') execv("/proc/self/exe", argv);
  }
  return 0;
}
