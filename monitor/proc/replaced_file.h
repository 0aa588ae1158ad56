// A file that is always complete for its readers.
#ifndef MONITOR_REPLACED_FILE_H
#define MONITOR_REPLACED_FILE_H

#include <sys/types.h>

#include <string>

#include "proc/unique_fd.h"

// The folder of a file, opened, and the file's name in it. The descriptor is -1, and errno set, if
// the folder cannot be opened: see open_trusted_folder().
struct FilePlace {
  explicit FilePlace(const std::string& path);

  std::string name;
  UniqueFd folder;
};

enum class Durability { kOnDisk, kNone };

// Replaces the file. At every moment the path names the complete old file or the complete new one.
// With kOnDisk the new one is on the disk when this returns. Returns the error, empty if there was
// none.
std::string replace_file(const std::string& path, const std::string& text, mode_t mode,
                         Durability durability);

// Removes the file or socket.
void remove_file(const FilePlace& place);

// Removes the temporary files of processes that were killed while they replaced the file.
void remove_unfinished(const FilePlace& place);

// "WHAT: Permission denied"
std::string system_error(const char* what, int error);

#endif
