// The plug-in's plain functions over all processes, for the commands that use them.
#ifndef MONITOR_PROCESS_LIBRARY_H
#define MONITOR_PROCESS_LIBRARY_H

#include <optional>
#include <string>
#include <vector>

#include "item/plugin.h"
#include "mirt_process.h"

// One process of a listing, copied out of the library's list.
struct ProcessRow {
  pid_t pid;
  int rss_mib;
  int core_percent;
  std::string name;
  std::string cmdline;
};

struct Listing {
  std::vector<ProcessRow> processes;
  int user_percent = 0;  // of the whole machine, over the minute; 0 in a memory listing
};

class ProcessLibrary {
 public:
  // Loads the plug-in; on failure nothing, and the reason has been said on standard error.
  static std::optional<ProcessLibrary> load(const std::string& plugin);

  // The functions of a loaded plug-in; nothing if it does not export them all.
  static std::optional<ProcessLibrary> of(const Plugin& plugin);

  // Every user process; with its CPU usage it takes a minute. Nothing when /proc cannot be read.
  std::optional<Listing> list(bool with_cpu) const;

  // The PIDs that a name means, in the order of /proc. Nothing when there is no memory.
  std::optional<std::vector<pid_t>> find_exact(const std::string& name) const;
  std::optional<std::vector<pid_t>> find_prefix(const std::string& name) const;
  std::optional<std::vector<pid_t>> find_wildcard(const std::string& pattern) const;

  // The same by the way of matching; an exact name gives one process at most.
  std::optional<std::vector<pid_t>> find(Match match, const std::string& name) const;

  // What KillProcess() returns.
  int kill(const std::string& name, pid_t pid) const;

 private:
  explicit ProcessLibrary(const Plugin& plugin);
  bool complete() const;

  decltype(GetAllProcessCoreCPU)* list_cpu_;
  decltype(GetAllProcessRssMem)* list_memory_;
  decltype(FreeAllProcessList)* free_list_;
  decltype(GetProcessPid)* find_one_;
  decltype(GetProcessPidExtern)* find_prefix_;
  decltype(GetProcessPidFuzzy)* find_wildcard_;
  decltype(KillProcess)* kill_;
};

#endif
