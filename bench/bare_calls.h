// The floor of each row: only the system calls that are necessary.
#ifndef BARE_CALLS_H
#define BARE_CALLS_H

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cctype>
#include <string>
#include <vector>

inline void bare_read(const char* path) {
  char page[4096];
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  benchmark::DoNotOptimize(read(fd, page, sizeof page));
  close(fd);
}

inline void bare_read_all(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) bare_read(path.c_str());
}

inline unsigned int bare_listing(const char* path) {
  DIR* const directory = opendir(path);
  if (directory == nullptr) return 0;
  unsigned int entries = 0;
  while (readdir(directory) != nullptr) ++entries;
  closedir(directory);
  return entries;
}

inline std::string proc_path(pid_t pid, const char* file) {
  return "/proc/" + std::to_string(pid) + "/" + file;
}

// The paths of one file of every process, in the order of /proc.
inline std::vector<std::string> paths_of_all_processes(const std::string& file) {
  std::vector<std::string> paths;
  DIR* const directory = opendir("/proc");
  if (directory == nullptr) return paths;
  while (const dirent* entry = readdir(directory)) {
    if (isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0) continue;
    paths.push_back("/proc/" + std::string(entry->d_name) + "/" + file);
  }
  closedir(directory);
  return paths;
}

#endif
