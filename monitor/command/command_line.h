// The command line: which command it asks for, and with what.
#ifndef MONITOR_COMMAND_LINE_H
#define MONITOR_COMMAND_LINE_H

// Runs the command and returns the exit code. What cannot be understood is said on standard error,
// with what was expected.
int run_command_line(int argc, char** argv);

#endif
