// The walk over all processes that every search shares.
#ifndef PROCESS_SCAN_H
#define PROCESS_SCAN_H

#include <cstdlib>

#include "cmdline_turn.h"
#include "common_plugin.h"
#include "proc_file.h"
#include "shared_walk.h"

// Walks for one search. Returns false if the walk has to start again, for more searches.
template <typename Visit>
bool walk_processes(SharedWalk& walk, const char* task_name, int flag, Visit visit) {
  SubdirectoryReader processes("/proc");
  if (!processes.is_open()) return true;
  while (const char* name = processes.next()) {
    if (!walk.move_on()) return false;
    const pid_t pid = atoi(name);
    const ProcPath<100> path("/proc/%s/cmdline", name);
    const auto matches = [&] {
      CmdlineTurn turn(pid);
      return turn.take([&walk] { walk.move_on(); }) &&
             MIRT_Linux_Plugin::check_with_cmdline(path.get(), task_name, flag);
    };
    if (matches() && !visit(pid)) break;
  }
  return true;
}

// Calls visit(pid) for every process whose command line matches task_name in mode flag, in the
// order of /proc, until visit returns false. Directories that belong to no process have no command
// line and never match. If /proc cannot be opened, nothing is visited. Searches that run at the
// same time can share one walk. The search can start again once: discard() then has to undo all
// visits.
template <typename Discard, typename Visit>
void for_each_match(const char* task_name, int flag, Discard discard, Visit visit) {
  if (task_name == nullptr) return;
  SharedWalk walk;
  while (walk.lines() == nullptr) {
    if (walk.serves_others()) {
      walk.read_for_all();
    } else if (walk_processes(walk, task_name, flag, visit)) {
      return;
    } else {
      discard();
      walk.gather();
    }
  }
  walk.lines()->for_each_match(task_name, flag, visit);
}

#endif
