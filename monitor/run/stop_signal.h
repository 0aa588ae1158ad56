// SIGINT, SIGTERM and SIGHUP as a readable descriptor.
#ifndef MONITOR_STOP_SIGNAL_H
#define MONITOR_STOP_SIGNAL_H

// Turns the signals that end the program into an event that poll() sees.
//
// They are caught by a handler that writes to an eventfd. Blocking them and reading a signalfd
// would be as good for this program, but not for the commands that items start: a blocked or
// ignored signal stays so across exec(), and such a command could no longer be interrupted; a
// handler does not outlive exec(). For the same reason SIGPIPE is caught by a handler that does
// nothing, rather than ignored: a write to a closed pipe then fails with EPIPE here, while a
// pre-command keeps the normal behaviour.
class StopSignal {
 public:
  // False, with errno set, if no descriptor is left. Call once, before any thread starts.
  static bool install();

  // Becomes and stays readable once a stop is asked for.
  static int fd();
};

#endif
