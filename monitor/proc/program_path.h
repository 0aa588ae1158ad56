// Where programs are found that are named without a folder.
#ifndef MONITOR_PROGRAM_PATH_H
#define MONITOR_PROGRAM_PATH_H

#include <string>

// The folders, with colons between them. They are fixed: whoever starts the monitor may have
// others.
extern const char* const kProgramPath;

// The file to start for a name or an absolute path: one that can be executed. Empty, with errno
// set, if there is none.
std::string find_program(const std::string& name);

#endif
