// Searches programs that are named without a folder.
#ifndef MONITOR_PROGRAM_PATH_H
#define MONITOR_PROGRAM_PATH_H

#include <string>

// The folders, separated by colons. They do not depend on the PATH of the monitor.
extern const char* const kProgramPath;

// The executable file for a name or an absolute path. Empty, with errno set, if there is none.
std::string find_program(const std::string& name);

#endif
