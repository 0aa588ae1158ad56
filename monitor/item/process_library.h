// The plug-in's functions that list, find and kill processes.
#ifndef MONITOR_PROCESS_LIBRARY_H
#define MONITOR_PROCESS_LIBRARY_H

#include <optional>
#include <string>
#include <vector>

#include "item/plugin.h"
#include "mirt_process.h"

// One process of a listing, copied from the library's list.
struct ProcessRow {
  pid_t pid;
  int rss_mib;
  int core_percent;
  std::string name;
  std::string cmdline;
};

struct Listing {
  std::vector<ProcessRow> processes;
  int user_percent = 0;  // of the whole machine, over 60 seconds; 0 in a memory listing
};

class ProcessLibrary {
 public:
  // Loads the plug-in. On failure prints the reason on standard error and returns nothing.
  static std::optional<ProcessLibrary> load(const std::string& plugin);

  // The functions of a loaded plug-in; nothing if it does not export all of them.
  static std::optional<ProcessLibrary> of(const Plugin& plugin);

  // Lists every user process; with CPU usage this takes 60 seconds. Nothing if /proc cannot be
  // read.
  std::optional<Listing> list(bool with_cpu) const;

  // The PIDs that match a name, in the order of /proc. Nothing if memory is short.
  std::optional<std::vector<pid_t>> find_exact(const std::string& name) const;
  std::optional<std::vector<pid_t>> find_prefix(const std::string& name) const;
  std::optional<std::vector<pid_t>> find_wildcard(const std::string& pattern) const;

  // The same with the given match mode; an exact name finds at most one process.
  std::optional<std::vector<pid_t>> find(Match match, const std::string& name) const;

  // Returns the result of CheckProcessExist().
  int check(const std::string& name, pid_t pid) const;

 private:
  explicit ProcessLibrary(const Plugin& plugin);
  bool complete() const;

  decltype(GetAllProcessCoreCPU)* list_cpu_;
  decltype(GetAllProcessRssMem)* list_memory_;
  decltype(FreeAllProcessList)* free_list_;
  decltype(GetProcessPid)* find_one_;
  decltype(GetProcessPidExtern)* find_prefix_;
  decltype(GetProcessPidFuzzy)* find_wildcard_;
  decltype(CheckProcessExist)* check_;
};

#endif
