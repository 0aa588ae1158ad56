// The walk over all processes that every search shares.
#ifndef PROCESS_SCAN_H
#define PROCESS_SCAN_H

#include <cstdlib>

#include "common_plugin.h"
#include "proc_file.h"

// Calls visit(pid) for every process whose command line matches task_name in mode flag, in the
// order of /proc, until visit returns false. Directories that belong to no process have no command
// line and so never match. Nothing is visited when /proc cannot be opened.
template <typename Visit>
void for_each_match(const char* task_name, int flag, Visit visit) {
  SubdirectoryReader processes("/proc");
  if (!processes.is_open()) return;
  while (const char* name = processes.next()) {
    const ProcPath<100> path("/proc/%s/cmdline", name);
    if (MIRT_Linux_Plugin::check_with_cmdline(path.get(), task_name, flag) && !visit(atoi(name))) {
      return;
    }
  }
}

#endif
