// Reads small files under /proc.
#ifndef MONITOR_PROC_FILE_H
#define MONITOR_PROC_FILE_H

#include <cstddef>
#include <optional>
#include <string>

// The first `most` bytes of the file; nothing, with errno set, if it cannot be opened or read.
std::optional<std::string> read_proc_file(const std::string& path, size_t most = 65536);

// "/proc/1234/status"
std::string proc_path(int id, const char* file);

// "Tgid:\t1234" -> "1234": the text after the key in /proc/<id>/status; nothing if there is no such
// line, process or thread.
std::optional<std::string> status_value(int id, const std::string& key);

// The short name of a process or thread (/proc/<id>/comm); empty if it does not exist.
std::string name_of_process(int id);

#endif
