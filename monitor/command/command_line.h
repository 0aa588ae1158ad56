// Reads the command line and runs its command.
#ifndef MONITOR_COMMAND_LINE_H
#define MONITOR_COMMAND_LINE_H

// Runs the command and returns the exit status. Reports a mistake on standard error, with what was
// expected.
int run_command_line(int argc, char** argv);

#endif
