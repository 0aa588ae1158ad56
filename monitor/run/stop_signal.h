// SIGINT and SIGTERM, and SIGHUP where it ends the program, as something to look at.
#ifndef MONITOR_STOP_SIGNAL_H
#define MONITOR_STOP_SIGNAL_H

#include "proc/wake.h"

// The signals are caught by a handler. Blocking them and reading a signalfd would be as good for
// this program, but not for the commands that items start: a blocked or ignored signal stays so
// across exec(), and such a command could no longer be interrupted; a handler does not outlive
// exec(). For the same reason SIGPIPE is caught by a handler that does nothing, rather than
// ignored: a write to a closed pipe then fails with EPIPE here, while a pre-command keeps the
// normal behaviour.
class StopSignal {
 public:
  // Call once, before any thread starts. SIGHUP ends the program if `hangup_ends`, and is counted
  // otherwise. `wake` is set by each signal and must outlive the
  // program's threads. False, with errno set, if the system refuses.
  static bool install(const Wake& wake, bool hangup_ends);

  // Catches SIGPIPE again, after a library has had it ignored.
  static bool catch_pipe();

  // True once a stop was asked for.
  static bool asked();

  // How often SIGHUP has come where it does not end the program.
  static unsigned hangups();
};

#endif
