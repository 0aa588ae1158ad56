// Catches SIGINT, SIGTERM and SIGHUP.
#ifndef MONITOR_STOP_SIGNAL_H
#define MONITOR_STOP_SIGNAL_H

#include "proc/wake.h"

// A handler catches the signals. A signalfd would need blocked signals, and a blocked or ignored
// signal stays so across exec(): the commands that items start could not be interrupted. exec()
// resets handlers. For the same reason an empty handler catches SIGPIPE: a write to a closed pipe
// then fails with EPIPE in this program, and commands keep the normal behaviour.
class StopSignal {
 public:
  // Call it once, before any thread starts. If `hangup_ends`, SIGHUP requests a stop, else it is
  // counted. Each signal sets `wake`, which must outlive all threads. False, with errno set, on
  // failure.
  static bool install(const Wake& wake, bool hangup_ends);

  // Catches SIGPIPE again after a library has set it to ignored.
  static bool catch_pipe();

  // True after a stop was requested.
  static bool asked();

  // The number of SIGHUP signals that did not request a stop.
  static unsigned hangups();
};

#endif
