// Runs instances for the commands that call items.
#ifndef MONITOR_RUN_INSTANCES_H
#define MONITOR_RUN_INSTANCES_H

#include <string>

#include "item/plan.h"
#include "run/reloader.h"
#include "run/scheduler.h"

struct RunRequest {
  std::string plugin;  // empty: the default plug-in
  Schedule schedule;
  bool json = false;
  bool fail_unless_done = false;  // exit with 1 unless each call measured or did its action
  bool hangup_ends = false;       // SIGHUP ends the run; else it reloads the configuration
  Reloader::Read reload{};        // empty: reload is not possible
};

// Loads the plug-in, runs the plan, and returns the exit status. If a call has not returned at the
// end, it ends the process with that status instead.
int run_instances(const Plan& plan, const RunRequest& request);

#endif
