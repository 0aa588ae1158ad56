// Folders in which this program writes, perhaps as root.
#ifndef MONITOR_TRUSTED_FOLDER_H
#define MONITOR_TRUSTED_FOLDER_H

#include <sys/stat.h>

#include <string>

#include "proc/unique_fd.h"

// True if somebody else than this user and root may write to what this describes.
bool others_can_write(const struct stat& status);

// Opens the folder to read it. On the way there it follows symbolic links only in folders that
// others cannot write to: elsewhere the link may be anybody's. The owner is empty, with errno set,
// if that fails; ELOOP if there was such a link.
UniqueFd open_trusted_folder(const std::string& path);

#endif
