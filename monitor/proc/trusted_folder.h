// Safe access to folders, because the program may run as root.
#ifndef MONITOR_TRUSTED_FOLDER_H
#define MONITOR_TRUSTED_FOLDER_H

#include <sys/stat.h>

#include <string>

#include "proc/unique_fd.h"

// True if users other than this one and root can write to the file or folder with this status.
bool others_can_write(const struct stat& status);

// Opens the folder for reading. Follows a symbolic link only if it is in a folder that others
// cannot write to; any other link may be an attacker's. On failure the result holds -1 and errno is
// set: ELOOP for such a link.
UniqueFd open_trusted_folder(const std::string& path);

#endif
